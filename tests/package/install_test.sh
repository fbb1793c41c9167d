#!/usr/bin/env bash
# Builds the Debian package from a build folder, has lintian check it, unpacks
# it into a temporary root and uses the installed programs from there.
#   install_test.sh BUILD_DIR
set -euo pipefail
build=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

cpack --config "$build/CPackConfig.cmake" -B "$tmp/out" >"$tmp/cpack.log" 2>&1 || {
    cat "$tmp/cpack.log"
    exit 1
}
deb=$(ls "$tmp"/out/*.deb)
echo "package: $(basename "$deb")"

# Errors fail; warnings are shown.
lintian --fail-on error --tag-display-limit 0 "$deb" 2>&1 | grep -v 'running with root privileges' || true
lintian --fail-on error "$deb" >/dev/null 2>&1

dpkg-deb -x "$deb" "$tmp/root"
for f in usr/bin/tasket usr/bin/tasket-share usr/libexec/tasket-share-form etc/pam.d/tasket \
         usr/share/applications/tasket-share.desktop usr/share/man/man1/tasket.1.gz \
         usr/share/man/man1/tasket-share.1.gz usr/share/bash-completion/completions/tasket \
         usr/share/doc/tasket/copyright usr/lib/tasket/libtasket-vdir-calendars.so \
         usr/lib/tasket/libtasket-caldav-calendars.so usr/lib/tasket/libtasket-postgres-cloud.so \
         usr/lib/tasket/libtasket-pam-auth.so; do
    [ -e "$tmp/root/$f" ] || { echo "missing from the package: /$f"; exit 1; }
done

# The desktop entry starts the installed form program.
grep -qx "Exec=/usr/libexec/tasket-share-form %U" "$tmp/root/usr/share/applications/tasket-share.desktop" ||
    { echo "the desktop entry does not start /usr/libexec/tasket-share-form"; exit 1; }

export XDG_DATA_HOME="$tmp/data" XDG_CONFIG_HOME="$tmp/config"
unset DISPLAY WAYLAND_DISPLAY
"$tmp/root/usr/bin/tasket-share" --yes --text "Installed and shared" https://example.org/installed
"$tmp/root/usr/bin/tasket" tasks | grep -q "Installed and shared"
# A calendar store comes from the installed module.
"$tmp/root/usr/bin/tasket" lists add Errands >/dev/null
"$tmp/root/usr/bin/tasket" calendars sources "$tmp/calendars" >/dev/null
"$tmp/root/usr/bin/tasket" calendars link Errands --as reminders | grep -q "^1 lists"
echo "the installed programs saved and read a task"
