#!/usr/bin/env bash
# install_package_test.sh BUILD_DIR SOURCE_DIR [EMULATOR...]: the Debian package unpacked into a
# scratch root, its slewsim's transcript equal to the build's, its systemd units verified.
set -Eeuo pipefail
build=$1 source=$2 emulator=("${@:3}")
scratch=$(mktemp -d "${TMPDIR:-/tmp}/slewd-package.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
root=$scratch/root
fail() { echo "FAIL: $*"; exit 1; }
# A command that stops the script under set -e names itself.
trap '_failed=$?; echo "FAIL: line $LINENO: \"$BASH_COMMAND\" exited with status $_failed"' ERR

(cd "$build" && cpack -G DEB -B "$scratch/out" >"$scratch/cpack.log" 2>&1) || { cat "$scratch/cpack.log"; fail "cpack"; }
debs=("$scratch"/out/slewd_*.deb)  # a glob: "find | head" dies of SIGPIPE under pipefail
deb=${debs[0]}
[ -f "$deb" ] || fail "no slewd_*.deb made"
dpkg-deb --info "$deb" >"$scratch/info"
grep -q '^ Depends:.*libsqlite3' "$scratch/info" || fail "Depends lacks libsqlite3: $(grep Depends "$scratch/info")"
dpkg-deb -x "$deb" "$root"
for path in usr/bin/slewd usr/bin/slewsim usr/bin/slewctl usr/lib/systemd/system/slewd.service \
            usr/share/doc/slewd/README.md usr/share/doc/slewd/realtime.md; do
  [ -e "$root/$path" ] || fail "package lacks /$path"
done

scenarios=("$source"/tests/scenarios/*.scn)
scenario=${scenarios[0]}
"${emulator[@]}" "$root/usr/bin/slewsim" --transcript "$scratch/installed.txt" "$scenario" >"$scratch/run.log" ||
  { cat "$scratch/run.log"; fail "installed slewsim on $scenario"; }
grep -q '^PASS ' "$scratch/run.log" || fail "installed slewsim did not pass $scenario"
"${emulator[@]}" "$build/slewsim" --transcript "$scratch/built.txt" "$scenario" >/dev/null
cmp -s "$scratch/installed.txt" "$scratch/built.txt" || fail "installed and built transcripts differ"

# The units with their programs in the scratch root; any word from the verifier is a fault.
if command -v systemd-analyze >/dev/null; then
  mkdir "$scratch/units"
  for unit in "$root"/usr/lib/systemd/system/*.service; do
    sed "s|^ExecStart=/|ExecStart=$root/|" "$unit" >"$scratch/units/$(basename "$unit")"
  done
  systemd-analyze verify --man=no "$scratch"/units/*.service >"$scratch/verify.log" 2>&1 ||
    { cat "$scratch/verify.log"; fail "systemd-analyze verify"; }
  [ ! -s "$scratch/verify.log" ] || { cat "$scratch/verify.log"; fail "systemd-analyze verify warned"; }
else
  echo "systemd-analyze not available: units not verified"
fi
echo "PASS"
