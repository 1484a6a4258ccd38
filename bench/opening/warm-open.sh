#!/usr/bin/env bash
# Shows that a warm open (identity cache and extraction cache both hit) hashes
# nothing and never opens the source archive: it runs tomekeeper-open twice on
# one book in private XDG directories, the second time under strace, and
# counts the system calls that touched the archive. Usage:
#   bench/opening/warm-open.sh [BOOK.epub]   (default: a generated book)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
cmake --preset release >/dev/null && cmake --build --preset release --target tomekeeper-open >/dev/null
open="$root/build/release/cli/opening/tomekeeper-open"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_DATA_HOME="$work/data" XDG_CACHE_HOME="$work/cache"
book="$work/book.epub"
if [ $# -ge 1 ]; then cp "$1" "$book"; else
  mkdir -p "$work/src/META-INF" "$work/src/OEBPS"
  printf 'application/epub+zip' >"$work/src/mimetype"
  printf '<?xml version="1.0"?><container xmlns="urn:oasis:names:tc:opendocument:xmlns:container" version="1.0"><rootfiles><rootfile full-path="OEBPS/package.opf" media-type="application/oebps-package+xml"/></rootfiles></container>' >"$work/src/META-INF/container.xml"
  printf '<package/>' >"$work/src/OEBPS/package.opf"
  head -c 50000000 /dev/urandom >"$work/src/OEBPS/image.bin"
  (cd "$work/src" && bsdtar --format zip -cf "$book" mimetype META-INF OEBPS)
fi
echo "cold: $("$open" "$book" --trace)"
strace -f -e trace=openat,open,read,pread64 -o "$work/strace.log" "$open" "$book" --trace >"$work/warm.json"
echo "warm: $(cat "$work/warm.json")"
opens=$(grep -c "book.epub\"" "$work/strace.log" || true)
echo "system calls that opened the source archive during the warm open: $opens"
