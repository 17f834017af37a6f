#!/bin/sh
# abi.sh COMPILER COMPARE: a small library is recorded and then changed in one way after the other;
# each time what changed must be named, and be told from what is merely new.
set -eu
compiler=$1 compare=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
mkdir record

cat >Stand.h <<'END'
#include <utility>
namespace stand {
enum Format : int { First, Second = SECOND, THIRD };
namespace detail {
struct Part { PART };
}
struct Plain {
    std::pair<int, int> both;
    detail::Part part;
    int value;
    MEMBER
};
class Device {
public:
    virtual ~Device();
    virtual void open(Format format, const Plain& plain);
    MIDDLE
    virtual void close();
    OPERATION
};
FUNCTION
int scaled(PARAMETER value);
} // namespace stand
END
cat >Stand.cpp <<'END'
#include "Stand.h"
namespace stand {
struct Inside { INSIDE };
static Inside inside;
Device::~Device() = default;
void Device::open(Format, const Plain&) {}
void Device::close() {}
int scaled(PARAMETER value) { return static_cast<int>(value) + static_cast<int>(sizeof inside); }
BODY
} // namespace stand
END

# build_stand [NAME=TEXT]...: the library, with places of its source filled in.
build_stand() {
    soname=libstand.so.0
    set -- SECOND=1 THIRD= PART='long one;' MEMBER= OPERATION= MIDDLE= PARAMETER=int FUNCTION= BODY= INSIDE='int one;' "$@"
    definitions='' IFS=$(printf '\t')
    for definition in "$@"; do
        case $definition in SONAME=*) soname=${definition#*=} ;; esac
        definitions="$definitions$IFS-D$definition"
    done
    # shellcheck disable=SC2086 # tabs separate the definitions
    "$compiler" -std=c++20 -g -w -fPIC -shared -Wl,-soname,$soname $definitions Stand.cpp -o libstand.so
    unset IFS
}

fail() { printf '%s\n' "$1"; cat output; exit 1; }
compare_stand() { "$compare" libstand.so record "$@" >output 2>&1; }
# differs WHAT VERDICT PATTERN
differs() {
    ! compare_stand 2.0 || fail "$1 goes unnoticed"
    grep -qF "$2" output || fail "$1 is not '$2'"
    grep -q "$3" output || fail "$1 is not named"
}
broken='this needs a new SOVERSION'
extended='additions'

build_stand
compare_stand 1.0 additions || fail 'a first record is not made'
compare_stand 1.0 || fail 'a record does not match what it was made of'
build_stand INSIDE='int one; long two;'
compare_stand 2.0 || fail 'the inside of a class counts as a change'
build_stand PART='long uno;'
compare_stand 2.0 || fail 'a detail counts as a change'

build_stand SECOND=2
differs "an enumerator's value" "$broken" Second
build_stand MEMBER='int more;'
differs 'a data member' "$broken" more
build_stand MEMBER='std::pair<int, int> more;'
differs "a standard type's data member" "$broken" 'size changed'
build_stand PART='long one; long two;'
differs 'the size of a detail that is part of a class' "$broken" 'size changed'
build_stand MIDDLE='virtual void pause() {}'
differs 'a virtual function' "$broken" pause
build_stand PARAMETER=long
differs "a parameter's type" "$broken" 'scaled(int)'
! compare_stand 2.0 additions || fail 'a break is recorded as an addition'

build_stand THIRD=Third
differs 'a new enumerator' "$extended" Third
build_stand OPERATION='int operation();' BODY='int Device::operation() { return 1; }'
differs 'a new operation of a class' "$extended" 'stand::Device::operation()'
added='FUNCTION=int added();' body='BODY=int added() { return 1; }'
build_stand "$added" "$body"
differs 'a new function' "$extended" 'stand::added()'
compare_stand 2.0 additions || fail 'an addition is not recorded'
grep -qF '"stand::added()@Base" 2.0' record/libstand.symbols || fail 'an addition lacks its version'
grep -qF '"stand::scaled(int)@Base" 1.0' record/libstand.symbols || fail 'a version is forgotten'
compare_stand 3.0 || fail 'a record does not match after an addition'

build_stand
differs 'a function that is gone' "$broken" 'stand::added()'
build_stand SONAME=libstand.so.1 PARAMETER=long
differs 'a new SONAME' 'a new SOVERSION wants a new record' 'libstand.so.1'
compare_stand 4.0 additions || fail 'a new SONAME is not recorded'
grep -qF '"stand::Device::close()@Base" 4.0' record/libstand.symbols || fail 'a new SONAME keeps old versions'
compare_stand 4.0 || fail 'a record does not match after a new SONAME'
