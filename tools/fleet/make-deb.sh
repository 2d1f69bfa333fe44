#!/usr/bin/env bash
# Builds the architecture-independent Debian package of the fleet tools:
#   tools/fleet/make-deb.sh OUT_DIR      -> OUT_DIR/varnor-userlog-fleet_VERSION_all.deb
set -euo pipefail
. "$(dirname "$0")/../common.sh"
here=$(cd "$(dirname "$0")" && pwd)
out=$(mkdir -p "$1" && cd "$1" && pwd)
version=$(sed -n 's/^project(VarnorUserLog VERSION \([0-9.]*\).*/\1/p' "$here/../../CMakeLists.txt")
package=varnor-userlog-fleet
root=$out/$package-root
say "packaging $package $version"
rm -rf "$root"
install -d "$root/DEBIAN"
install -D -m 0755 "$here/userlog-fleet" "$root/usr/bin/userlog-fleet"
install -D -m 0755 "$here/fleet-writer" "$root/usr/lib/$package/fleet-writer"
install -D -m 0644 -t "$root/usr/share/$package" "$here/collector.conf.in" "$here/shipper.conf.in"
install -D -m 0644 -t "$root/lib/systemd/system" \
    "$here/package/userlog-fleet-collector.service" "$here/package/userlog-fleet-shipper.service"
install -D -m 0644 "$here/package/collector.default" "$root/etc/default/userlog-fleet-collector"
install -D -m 0644 "$here/package/shipper.default" "$root/etc/default/userlog-fleet-shipper"
install -d "$root/usr/share/man/man1" "$root/usr/share/doc/$package"
gzip -9n <"$here/package/userlog-fleet.1" >"$root/usr/share/man/man1/userlog-fleet.1.gz"
gzip -9n <"$here/package/changelog" >"$root/usr/share/doc/$package/changelog.gz"
install -m 0644 "$here/../../cmake/package/copyright" "$root/usr/share/doc/$package/copyright"
install -m 0644 "$here/README.md" "$root/usr/share/doc/$package/README.md"
printf '%s\n' /etc/default/userlog-fleet-collector /etc/default/userlog-fleet-shipper \
    >"$root/DEBIAN/conffiles"
cat >"$root/DEBIAN/control" <<CONTROL
Package: $package
Version: $version
Architecture: all
Maintainer: Varnor userlog team <userlog@varnor.invalid>
Installed-Size: $(du -sk --exclude=DEBIAN "$root" | cut -f1)
Depends: rsyslog (>= 8.2006), rsyslog-relp
Section: admin
Priority: optional
Homepage: https://varnor.invalid/userlog
Description: ship robot pendant user logs to a central collector
 userlog-fleet runs rsyslog as a shipper on each pendant, following every log
 file the varnor user log library writes, or as the collector that keeps a
 byte-identical copy of every pendant's files, over RELP with TLS. Nothing is
 lost when the collector or a shipper is killed. Systemd units for both roles.
CONTROL
(cd "$root" && find . -type f ! -path './DEBIAN/*' ! -path './etc/*' -printf '%P\0' |
    sort -z | xargs -0 md5sum >DEBIAN/md5sums)
chmod 0644 "$root/DEBIAN/"*
rm -f "$out/${package}_"*.deb
dpkg-deb --root-owner-group -Zxz --build "$root" "$out/${package}_${version}_all.deb" >/dev/null
rm -rf "$root"
echo "$out/${package}_${version}_all.deb"
