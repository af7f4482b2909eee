#!/usr/bin/env bash
# The device build's source list matches the tree, and the check would say
# so if it did not: a copy of the tree with a source the list lacks, and one
# whose list names a file that is gone, must both fail with that file named.
set -euo pipefail
repo=$(cd "$(dirname "$0")/../.." && pwd)
check=$repo/tools/check-android-bp
"$check" "$repo"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
expect_fault() {  # TREE TEXT
    local out
    if out=$("$check" "$1"); then
        echo "FAIL: the check passed a tree where it should report: $2"
        exit 1
    fi
    grep -qF "$2" <<<"$out" || { echo "FAIL: expected \"$2\", got: $out"; exit 1; }
}
copy_tree() {
    rm -rf "$work/tree"
    mkdir "$work/tree"
    cp -r "$repo/src" "$repo/base" "$repo/Android.bp" "$work/tree"
}

copy_tree
touch "$work/tree/src/tools/Unlisted.cpp"
expect_fault "$work/tree" "src/tools/Unlisted.cpp is not listed in Android.bp"

copy_tree
rm "$work/tree/base/Strings.cpp"
expect_fault "$work/tree" "Android.bp lists base/Strings.cpp, which does not exist"
echo "check-android-bp: unlisted and missing sources are caught"
