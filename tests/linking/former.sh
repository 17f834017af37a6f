#!/bin/sh
# former.sh COMPILER SOURCE INCLUDE_ROOT LIBRARY_FOLDER LIBRARY...: a program that was compiled when
# nonstd::span was std::span still runs with the libraries: their operations have those names, too.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
compiler=$1 source=$2 root=$3
shift 3
# Only what it asks for by name matters: with the headers as they were it is compiled as it was.
cp -r "$root" "$folder/root"
cat >"$folder/root/nonstd/span.hpp" <<'END'
#pragma once
#include <span>
namespace nonstd {
namespace span_lite {
using std::dynamic_extent;
using std::span;
} // namespace span_lite
using span_lite::dynamic_extent;
using span_lite::span;
} // namespace nonstd
END
STANDARD=c++20 "$here/outside.sh" "$compiler" "$source" "$folder/root" "$@"
