#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Plants each fault of scripts/mutants.py, one at a time, in a scratch copy of the working tree
# (build-mutation/), rebuilds, runs the whole suite and reports per fault which tests failed
# ("caught" and the first test that failed) or "SURVIVED". Usage:
# scripts/mutation-check.sh [fault id ...]. A caught fault stops the suite at its first failure;
# a surviving one runs all of it. Not part of `make test`.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
scratch="$root/build-mutation/src"
rm -rf "$scratch" && mkdir -p "$scratch"
(cd "$root" && git ls-files -z | xargs -0 cp --parents -t "$scratch")
cd "$scratch"
cmake -S . -B build -DCMAKE_BUILD_TYPE=Debug > /dev/null || exit 1
cmake --build build -j2 > /dev/null || { echo "mutation: the unchanged tree does not build" >&2; exit 1; }
(cd build && ctest -j2 --timeout 120 > /dev/null) || { echo "mutation: the unchanged suite fails" >&2; exit 1; }

survived=0
for id in $(python3 -c "
import sys; sys.path.insert(0, '$root/scripts'); from mutants import M
wanted = set(sys.argv[1:])
print(' '.join(m[0] for m in M if not wanted or m[0] in wanted))" "$@"); do
    file=$(python3 - "$id" "$root" <<'PY'
import sys; sys.path.insert(0, sys.argv[2] + '/scripts'); from mutants import M
_, path, old, new = next(m for m in M if m[0] == sys.argv[1])
text = open(path).read()
if text.count(old) != 1:
    sys.exit(3)
open(path + '.orig', 'w').write(text)
open(path, 'w').write(text.replace(old, new))
print(path)
PY
    ) || { echo "$id noapply"; continue; }
    if ! cmake --build build -j2 > /dev/null 2>&1; then
        result="caught (build)"
    else
        # Without the cost data of earlier runs, ctest runs the suites in the order they are
        # declared, the quick unit suites first, so a caught fault stops early.
        rm -f build/Testing/Temporary/CTestCostData.txt
        failed=$(cd build && ctest -j2 --timeout 120 --stop-on-failure 2>&1 | sed -nE 's/^\s+[0-9]+ - ([^ ]+).*/\1/p' | tr '\n' ' ')
        result=${failed:+caught $failed}
        result=${result:-SURVIVED}
    fi
    mv "$file.orig" "$file" && touch "$file"
    [ "$result" = SURVIVED ] && survived=$((survived + 1))
    echo "$id $result"
done
echo "mutation: $survived survived"
