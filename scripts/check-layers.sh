#!/usr/bin/env bash
# Fails when an #include between folders of src/ (or between the public
# headers that those folders implement) points to a higher layer than the
# including file's, as scripts/layers.txt draws them. A public header belongs
# to the folder holding the source file of the same name, or to the folder
# that lists it in layers.txt; a header with neither is an error too.
set -euo pipefail
cd "$(dirname "$0")/.."
map=scripts/layers.txt

declare -A layer owner
while read -r lvl folder headers; do
    layer[$folder]=$lvl
    for h in $headers; do owner[$h]=$folder; done
done < <(grep -v '^\s*\(#\|$\)' "$map")

status=0
fail() { echo "layers: $*"; status=1; }

for dir in src/*/; do
    folder=$(basename "$dir")
    [ -n "${layer[$folder]:-}" ] || fail "src/$folder/ is not in $map"
done

for header in include/orvane/*.h; do
    name=$(basename "$header" .h)
    [ "$name" = orvane ] && continue
    [ -n "${owner[$name]:-}" ] && continue
    source=$(find src -name "$name.cpp" | head -n 1)
    if [ -z "$source" ]; then
        fail "$header has no source file and no owner in $map"
        continue
    fi
    owner[$name]=$(basename "$(dirname "$source")")
done

# check FILE FOLDER: every include of FILE must point to FOLDER's layer or below.
check() {
    local file=$1 folder=$2 here=${layer[$2]:-0} target there
    while read -r target; do
        case $target in
            \<orvane/*) target=${target#<orvane/}; target=${target%.h>}
                        [ "$target" = orvane ] && { fail "$file includes the umbrella header"; continue; }
                        target=${owner[$target]:-} ;;
            \"*/*)      target=${target#\"}; target=${target%%/*} ;;
            *)          continue ;;
        esac
        [ -z "$target" ] && continue
        there=${layer[$target]:-}
        if [ -z "$there" ]; then
            fail "$file includes from unknown folder $target"
        elif [ "$there" -gt "$here" ]; then
            fail "$file (layer $here, $folder) includes from $target (layer $there)"
        fi
    done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*\([<"][^>"]*[>"]\).*/\1/p' "$file")
}

while IFS= read -r file; do
    check "$file" "$(echo "$file" | cut -d/ -f2)"
done < <(find src -name '*.h' -o -name '*.cpp' | sort)
for header in include/orvane/*.h; do
    name=$(basename "$header" .h)
    [ "$name" = orvane ] && continue
    [ -n "${owner[$name]:-}" ] && check "$header" "${owner[$name]}"
done

[ $status -eq 0 ] && echo "layers: every include points to its own layer or below"
exit $status
