# program_path(VAR TARGET): the path by which a test starts one of our
# programs. In a cross-build the kernel cannot run them, so each is started
# through a small host script that hands it to the emulator; a test that
# runs `slewsim` or execs `slewd` then works the same on both builds.
function(program_path out target)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    set(${out} $<TARGET_FILE:${target}> PARENT_SCOPE)
    return()
  endif()
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  set(launcher ${PROJECT_BINARY_DIR}/emulated/${target})
  file(GENERATE OUTPUT ${launcher}
    CONTENT "#!/bin/sh\nexec ${emulator} $<TARGET_FILE:${target}> \"$@\"\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(${out} ${launcher} PARENT_SCOPE)
endfunction()
