#!/usr/bin/env bash
# Puts the pinned SQLite amalgamation (sqlite3.c and sqlite3.h of SQLite 3.52.0) into the folder
# given as the first argument. The upstream tarball comes inside the npm package sqlite3@6.0.1
# (fetched with `npm pack`); the package, the tarball and both files are checked against their
# SHA-256 sums. Does nothing when the folder already holds the right files.
set -euo pipefail
dest="$1"
PACKAGE=sqlite3@6.0.1
PACKAGE_SHA256=ab8d044a93e05bd031d7ea75547c7fa60387cdc259d27f93c0e3e2832c4b1df9
TARBALL=package/deps/sqlite-autoconf-3520000.tar.gz
TARBALL_SHA256=f6b50b0c103392af32a8be15b2b9d25959de9a00a70c3979128aafeaa5338b3f
SOURCE_SHA256=a503acc9fe98f628eed36eb2aa2116a26f2541270d757f9b7cdbc2f19eb72b8f
HEADER_SHA256=37537d6131c1d2e507b34a6cee5590e27cedb7d82f543f257afbc72c0cbbcc22

check() {  # file sum
  echo "$2  $1" | sha256sum --check --status
}

if [ -f "$dest/sqlite3.c" ] && [ -f "$dest/sqlite3.h" ] && check "$dest/sqlite3.c" "$SOURCE_SHA256" &&
   check "$dest/sqlite3.h" "$HEADER_SHA256"; then
  exit 0
fi

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
(cd "$work" && npm pack "$PACKAGE" --silent >/dev/null)
archive="$(ls "$work"/sqlite3-*.tgz)"
check "$archive" "$PACKAGE_SHA256" || { echo "fetch-sqlite: $PACKAGE does not match its pinned SHA-256" >&2; exit 1; }
tar -xzf "$archive" -C "$work" "$TARBALL"
check "$work/$TARBALL" "$TARBALL_SHA256" || { echo "fetch-sqlite: $TARBALL does not match its pinned SHA-256" >&2; exit 1; }
tar -xzf "$work/$TARBALL" -C "$work" sqlite-autoconf-3520000/sqlite3.c sqlite-autoconf-3520000/sqlite3.h
check "$work/sqlite-autoconf-3520000/sqlite3.c" "$SOURCE_SHA256" &&
  check "$work/sqlite-autoconf-3520000/sqlite3.h" "$HEADER_SHA256" ||
  { echo "fetch-sqlite: the amalgamation does not match its pinned SHA-256" >&2; exit 1; }
mkdir -p "$dest"
cp "$work/sqlite-autoconf-3520000/sqlite3.c" "$work/sqlite-autoconf-3520000/sqlite3.h" "$dest/"
echo "fetch-sqlite: SQLite 3.52.0 amalgamation in $dest"
