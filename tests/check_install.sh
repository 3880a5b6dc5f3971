#!/bin/sh
# Installs a build into a folder of its own and uses it as somebody who has nothing else: settings and models from
# kestralum-new, the programs finding each other, manual pages that tell every option and no other.
# Usage: check_install.sh BUILD_DIR VERSION PYTHON
set -u
build=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail=0
wrong() { echo "$*"; fail=1; }
cmake --install "$build" --prefix "$folder/usr" >"$folder/log" 2>&1 || { cat "$folder/log"; exit 1; }
bin=$folder/usr/bin share=$folder/usr/share
unset DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM

# every option of --help stands in the manual page, and the reverse
for program in "$bin"/kestralum*; do
    name=$(basename "$program")
    page=$share/man/man1/$name.1.gz
    [ -f "$page" ] || { wrong "$name has no manual page"; continue; }
    "$program" --help | grep -oE "^  (-h,)?--?[a-z-]+" | tr ',' '\n' | tr -d ' ' | sort -u >"$folder/told"
    zcat "$page" | grep -A1 '^\.TP' | grep '^.fB.-' | sed 's/\\fI.*//; s/\\f[BR]//g; s/\\-/-/g' | tr ',' '\n' | tr -d ' ' |
        sort -u >"$folder/paged"
    [ "$(wc -l <"$folder/told")" -ge 2 ] || wrong "$name --help tells no options"
    diff "$folder/told" "$folder/paged" || wrong "$name: the lines with < stand in --help alone, with > in the page alone"
    if command -v man >/dev/null; then
        man --warnings -l -Tutf8 "$page" 2>&1 >/dev/null | grep . && wrong "$page has faults"
    fi
done

# without settings: today's line and status, and where to get some
mkdir "$folder/work" && cd "$folder/work" || exit 2
"$bin/kestralum-batch" check model.txt >out 2>err
[ $? -eq 2 ] && [ "$(cat out)" = "SETTING FILE OPEN ERROR" ] || wrong "without settings: $(cat out)"
[ "$(head -n 1 err)" = "setting/setting.txt: No such file or directory" ] && grep -q "kestralum-new FOLDER" err ||
    wrong "without settings: $(cat err)"

"$bin/kestralum-new" first || wrong "kestralum-new failed"
cmp -s first/setting/setting.txt "$share/kestralum/setting/setting.txt" && [ -f first/data/cad/bracket.step ] ||
    wrong "kestralum-new copies no settings or models"
echo mine >first/setting/setting.txt
"$bin/kestralum-new" first 2>err
[ $? -eq 1 ] && [ "$(cat first/setting/setting.txt)" = mine ] || wrong "kestralum-new does not keep what is there"
"$bin/kestralum-new" --bare second && [ -f second/setting/setting.txt ] && [ ! -e second/data ] || wrong "--bare"
"$bin/kestralum-new" 2>/dev/null
[ $? -eq 2 ] || wrong "kestralum-new takes no folder for one"

cp second/setting/setting.txt first/setting/ && cd first || exit 2
"$bin/kestralum-batch" static data/rigid_joint.txt --quiet >out 2>&1 && [ -f log/result_rigid_joint.txt ] ||
    wrong "a shipped model: $(cat out)"
"$bin/kestralum-batch" verify --quick --list --quiet >out 2>&1 && grep -q "^le10_hex " out ||
    wrong "the installed benchmarks are not found: $(cat out)"
if [ -x "$bin/kestralum-mesher" ]; then
    "$bin/kestralum-batch" check data/step_bracket.txt --set h=30 --set order=1 --quiet >out 2>&1 &&
        grep -q "4-node tetrahedron" out || wrong "the mesher is not found: $(cat out)"
fi

module=$(find "$folder/usr/lib" -name kestralum.py)
if [ -n "$module" ]; then
    (cd "$folder/work/first" && PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$(dirname "$module") "${3:-python3}" -c '
import kestralum, sys
run = kestralum.read("data/rigid_joint.txt").run("static")
sys.exit(kestralum.version != sys.argv[1] or len(run) != 1)' "$2" >out 2>&1) || wrong "the module: $(cat "$folder/work/first/out")"
fi

if [ -x "$bin/kestralum" ]; then
    # without a display it goes no further than the folder that it makes
    cd "$folder" && HOME=$folder/home "$bin/kestralum-open" >out 2>err
    [ $? -eq 1 ] && grep -q "no display" err && [ -f home/kestralum/setting/setting.txt ] || wrong "kestralum-open: $(cat err)"
    (cd home/kestralum && HOME=$folder/elsewhere "$bin/kestralum-open" data/bracket.txt 2>/dev/null)
    [ ! -e elsewhere ] || wrong "kestralum-open leaves a folder that has settings"
    if command -v desktop-file-validate >/dev/null; then
        desktop-file-validate "$share/applications/kestralum.desktop" || wrong "kestralum.desktop"
    fi
    metainfo=$share/metainfo/example.kestralum.kestralum.metainfo.xml
    if command -v appstreamcli >/dev/null; then
        appstreamcli validate --no-net "$metainfo" >out 2>&1 || wrong "the metainfo: $(cat out)"
    fi
    grep -q "<launchable type=\"desktop-id\">kestralum.desktop<" "$metainfo" &&
        grep -q "<release version=\"$("$bin/kestralum-batch" --version | grep -oE '[0-9]+\.[0-9]+')\" date=\"20" "$metainfo" ||
        wrong "the metainfo names another entry or version: $(cat "$metainfo")"
    if command -v update-mime-database >/dev/null; then
        XDG_DATA_DIRS=$share update-mime-database "$share/mime" 2>&1 | grep . && wrong "kestralum.xml"
        grep -q "^[0-9]*:model/step:\*.step$" "$share/mime/globs2" || wrong "kestralum.xml names no STEP files"
    fi
    icon=$(sed -n 's/^Icon=//p' "$share/applications/kestralum.desktop")
    [ "$(find "$share/icons/hicolor" -name "$icon.*" | wc -l)" -ge 5 ] || wrong "icons are missing"
fi
exit $fail
