#!/bin/sh
# kestralum-large as mpirun starts it: a mistake is told once and by the status, a request to stop and a killed rank leave the
# earlier result and no process.
# Usage: check_large.sh PROGRAM SETTING_FILE MPIEXEC
set -u
program=$1 setting=$2 mpiexec=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail=0
wrong() { echo "$*"; fail=1; }
cd "$folder" || exit 2
printf '%s\n' 'parameter n 6 %' 'material_info S 7800 2e11 0.3 %' \
    'part_info C red S RECT 1 1 1 0 0 0 n n n 0 0 0 0 0 0 0 0 0 %' \
    'boundary_condition B plane z 0 0 0 0 0 0 %' 'apply_force P area y 1000 0 1 0 1 1 1 %' END >cube.txt
sed 's/2e11/2x11/' cube.txt >typo.txt
run() { (in_place "$@"); }
in_place() { exec "$mpiexec" --oversubscribe -n 3 "$program" "$@" --setting "$setting" --quiet; }
# what the program itself has said on standard error; mpirun frames its own remarks with dashes
said() { awk '/^-----/ { on = !on; next } !on && NF' "$1"; }

for model in absent.txt typo.txt; do
    run static $model >out 2>err
    status=$?
    [ $status -eq 2 ] && [ "$(said err | wc -l)" -eq 1 ] && said err | grep -q "^$model: " ||
        wrong "$model: status $status, $(said err)"
done
run nothing cube.txt >out 2>err
[ $? -eq 2 ] && said err | grep -q "no analysis has the name 'nothing'" || wrong "an unknown analysis: $(said err)"

run static cube.txt >out 2>err || wrong "a sound model: $(cat err)"
grep -q '^reactions .* -1.000000e+03 ' out || wrong "no balance: $(cat out)"
cp log/result_cube.txt before.txt
files=$(ls -A log)

# a limit of address space, where the matrix library waits for its buffers for ever: the sanitizer's map is above any
for megabytes in 400 600 700 900; do
    [ -z "${ASAN_OPTIONS-}" ] || break
    (ulimit -v $((megabytes * 1024)) && OMP_NUM_THREADS=1 in_place eigen-lanczos cube.txt) >out 2>err &
    started=$!
    for k in $(seq 60); do
        kill -0 $started 2>/dev/null || break
        sleep 0.5
    done
    kill -TERM $started 2>/dev/null && wrong "$megabytes MB of address space: does not end"
    wait $started || [ "$(said err | wc -l)" -gt 0 ] || wrong "$megabytes MB of address space: ends without a line"
done
cp before.txt log/result_cube.txt

# frames in pieces, where the disk is full for one rank
sed 's/apply_force .*//' cube.txt >fly.txt
printf '%s\n' 'FLY explicit end_time 1 d_time 1e-6 output_frequency 2000' END >fly.ana
mkdir full
ln -s /dev/full full/fly_000003_p0002.vtu.part
run explicit fly.txt --vtu --log full >out 2>err
status=$?
[ $status -eq 1 ] && [ "$(said err)" = 'full/fly_000003_p0002.vtu cannot be written: No space left on device' ] &&
    [ "$(grep -c DataSet full/fly.pvd)" -eq 2 ] && grep -q '^for ParaView  *full/fly.pvd' out &&
    ! ls full | grep -q '000003' ||
    wrong "a full disk: status $status, $(said err), $(ls full)"

# a model of some seconds, ended while it computes
for how in TERM KILL; do
    in_place static cube.txt --set n=40 >out 2>err &
    started=$!
    sleep 4
    children=$(pgrep -P $started | paste -sd, -)
    if [ $how = TERM ]; then
        kill -TERM $started
    else
        pkill -KILL -P $started -n
    fi
    wait $started
    [ $? -ne 0 ] || wrong "$how: status 0"
    cmp -s log/result_cube.txt before.txt || wrong "$how: the earlier result is not as it was"
    [ "$(ls -A log)" = "$files" ] || wrong "$how: left in the folder: $(ls -A log)"
    for k in 1 2 3 4 5 6 7 8 9 10; do
        ranks=$(ps -o pid= -p "$children" 2>/dev/null) || break
        sleep 0.5
    done
    [ -z "$ranks" ] || wrong "$how: ranks are left: $ranks"
done
exit $fail
