#!/bin/sh
# Every program says the version of the build, and no source repeats the number.
# Usage: check_version.sh VERSION SOURCE_DIR PROGRAM...
version=$1 source=$2
shift 2
fail=0
[ $# -gt 0 ] || { echo "no program to ask"; exit 2; }
for program in "$@"; do
    said=$("$program" --version)
    [ "$said" = "KESTRALUM ver$version" ] || { echo "$program says '$said', the build is $version"; fail=1; }
done
number=$(echo "$version" | sed 's/\./\\./g')
if (cd "$source" && grep -rnE "(^|[^0-9.])$number([^0-9.]|$)" package model mesh input conditions elements fields solver system analysis \
        results view large app scripts --include='*.h' --include='*.cpp' --include='*.in' --include='*.cmake' 2>/dev/null); then
    echo "the lines above repeat the version, which CMakeLists.txt alone has"
    fail=1
fi
exit $fail
