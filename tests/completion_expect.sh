# SPDX-License-Identifier: Apache-2.0
# The checks of a completion test, sourced by the bash and fish ones: each defines
# offers LINE (the sorted offers for a command line, the cursor at its end), then calls
# expect LINE OFFERS for each case and finally finish NAME, which exits 1 if any case failed.

failures=0

expect() {
    local line=$1 expected=$2 got
    got=$(offers "$line")
    if [[ $got != "$expected" ]]; then
        echo "FAIL: '$line' offers '$got', expected '$expected'"
        failures=$((failures + 1))
    fi
}

finish() {
    if ((failures > 0)); then
        echo "$1: $failures failed"
        exit 1
    fi
    echo "$1: all offers as expected"
}
