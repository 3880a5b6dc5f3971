#!/bin/sh
# Includes only go down: prints every include of one room by another that the order of the rooms
# does not allow, and every circle of files that include each other, and fails when there is one. Also keeps
# Qt and OpenGL out of the core.
# Usage: check_includes.sh SOURCE_DIR
cd "$1" || exit 2
fail=0
allowed() {
    case "$1" in
        model) echo "model" ;;
        mesh) echo "mesh model" ;;
        solver) echo "solver model" ;;
        results) echo "results model" ;;
        view) echo "view fields elements model" ;;
        input) echo "input mesh model" ;;
        conditions) echo "conditions model" ;;
        elements) echo "elements model" ;;
        fields) echo "fields elements model" ;;
        system) echo "system conditions elements solver model" ;;
        analysis) echo "analysis fields system conditions elements solver results model" ;;
        large) echo "large fields conditions elements solver system analysis results model" ;;
        app) echo "app large model mesh input conditions elements fields solver system analysis results view" ;;
    esac
}
files=0
for room in model mesh input conditions elements fields solver system analysis results view large app; do
    for file in "$room"/*.cpp "$room"/*.h "$room"/*/*.cpp "$room"/*/*.h; do
        [ -f "$file" ] || continue
        files=$((files + 1))
        for other in $(sed -n 's|^ *#include "\([a-z]*\)/.*|\1|p' "$file" | sort -u); do
            case " $(allowed "$room") " in
                *" $other "*) ;;
                *) echo "$file includes $other/, which stands beside or above $room/"; fail=1 ;;
            esac
        done
    done
done
if grep -lE '#include <(Q[A-Z]|GL/)' model/* mesh/* input/* conditions/* elements/* fields/* solver/* system/* analysis/* analysis/*/* results/* large/* view/*.h view/*.cpp app/batch/* app/python/* app/*.* 2>/dev/null; then
    echo "the files above include Qt or OpenGL"
    fail=1
fi
if ! grep -oH '^ *#include "[^"]*"' $(find model mesh input conditions elements fields solver system analysis results view large app \
        -name '*.cpp' -o -name '*.h') | sed 's|: *#include "| |; s|"$||' | tsort >/dev/null; then
    echo "the files above include each other in a circle"
    fail=1
fi
[ "$files" -gt 10 ] || { echo "only $files source files found under $1"; fail=1; }
exit $fail
