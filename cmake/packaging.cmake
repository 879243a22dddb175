# The Debian package: programs, manual pages and docs (whatever the install
# rules put in place), and systemd units for slewd, slewweb and slewvideo.
#   cpack -G DEB --config build/CPackConfig.cmake   (or: ninja -C build package)
include(GNUInstallDirs)

# Units name the programs by their installed path: that of the package.
set(SLEWD_PACKAGE_PREFIX /usr)
set(SLEWD_BIN_DIR ${SLEWD_PACKAGE_PREFIX}/bin)
set(SLEWD_DOC_DIR ${SLEWD_PACKAGE_PREFIX}/share/doc/slewd)
set(SLEWD_UNIT_DIR lib/systemd/system)

install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
file(GLOB SLEWD_DOCS CONFIGURE_DEPENDS docs/*.md docs/*.png docs/*.svg)
install(FILES ${SLEWD_DOCS} DESTINATION ${CMAKE_INSTALL_DOCDIR})

configure_file(packaging/systemd/slewd.service.in systemd/slewd.service @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/systemd/slewd.service DESTINATION ${SLEWD_UNIT_DIR})
# The browser console is packaged once its program is part of the build.
if(TARGET slewweb)
  install(TARGETS slewweb DESTINATION bin)
  configure_file(packaging/systemd/slewweb.service.in systemd/slewweb.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/systemd/slewweb.service DESTINATION ${SLEWD_UNIT_DIR})
endif()

# Debian's names for the processors we build for.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
else()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME slewd)
set(CPACK_PACKAGE_VERSION 0.1.0)
set(CPACK_PACKAGING_INSTALL_PREFIX ${SLEWD_PACKAGE_PREFIX})
set(CPACK_PACKAGE_CONTACT "slewd developers <slewd@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "supervisor daemon of a pan/tilt/zoom camera head, with a simulated camera")
set(CPACK_PACKAGE_DESCRIPTION "slewd drives the motors and lens of a pan/tilt/zoom head from text commands on the camera's parameter bus. This package runs it on a simulated camera in real time (slewd, with systemd units), with the bus client slewctl and the scenario runner slewsim.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS adduser)
# slewsim draws its plots with gnuplot; everything else runs without it.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS gnuplot-nox)
# The simulated camera's video goes in when its program is part of the build;
# its GStreamer elements are plugins, which dpkg-shlibdeps cannot see.
if(TARGET slewvideo)
  install(TARGETS slewvideo DESTINATION bin)
  install(FILES docs/man/slewvideo.1 DESTINATION share/man/man1)
  configure_file(packaging/systemd/slewvideo.service.in systemd/slewvideo.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/systemd/slewvideo.service DESTINATION ${SLEWD_UNIT_DIR})
  set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "adduser, gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-ugly")
endif()
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/packaging/debian/postinst ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)

# The ONVIF front, where it is built (not in a cross-build without pugixml).
if(TARGET slewonvif)
  install(TARGETS slewonvif DESTINATION bin)
  install(FILES docs/man/slewonvif.1 DESTINATION share/man/man1)
  configure_file(packaging/systemd/slewonvif.service.in systemd/slewonvif.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/systemd/slewonvif.service DESTINATION ${SLEWD_UNIT_DIR})
endif()
