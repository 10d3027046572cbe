#!/usr/bin/env bash
# Checks that every include between the SDK's folders follows the libraries' link graph: a file may
# include its own library's headers and those of the libraries it links (directly or through others),
# nothing above it. Also fails on a cycle in the graph itself.
#
#   scripts/check-layers.sh <graph file> [<source root>]
#
# The graph file is written by the build (build/quorvane-layers.txt), one library per line:
#   <target> <folder>[,<folder>...] [<linked target> ...]
# with folders relative to the source root. A file belongs to the library whose folder is the longest
# prefix of its path; an include "x/y.h" is looked up under <root>/src, then <root>.
set -euo pipefail
graph=${1:?usage: check-layers.sh <graph file> [<source root>]}
root=${2:-$(cd "$(dirname "$0")/.." && pwd)}

declare -A deps folder_owner
targets=()
while read -r target folders linked; do
  [ -z "$target" ] && continue
  targets+=("$target")
  deps[$target]="$linked"
  IFS=, read -ra list <<< "$folders"
  for folder in "${list[@]}"; do folder_owner[$folder]=$target; done
done < "$graph"

# Every library's reachable set, by walking the graph; a library that reaches itself is in a cycle.
declare -A reach
status=0
for target in "${targets[@]}"; do
  declare -A seen=()
  stack=(${deps[$target]})
  while [ ${#stack[@]} -gt 0 ]; do
    next=${stack[-1]}; unset 'stack[-1]'
    [ -n "${seen[$next]:-}" ] && continue
    seen[$next]=1
    stack+=(${deps[$next]:-})
  done
  if [ -n "${seen[$target]:-}" ]; then
    echo "cycle: $target links itself through $(printf '%s ' "${!seen[@]}")"
    status=1
  fi
  reach[$target]=" ${!seen[*]} "
  unset seen
done

# owner_of PATH: sets `owner` to the library whose folder is the longest prefix of PATH (relative to the
# root). No subshell: it runs once per include.
declare -A owner_cache
owner_of() {
  local path=$1 best="" best_len=0 folder
  if [ -n "${owner_cache[$path]+x}" ]; then owner=${owner_cache[$path]}; return; fi
  for folder in "${!folder_owner[@]}"; do
    if [[ $path == "$folder"/* ]] && [ ${#folder} -gt $best_len ]; then
      best=${folder_owner[$folder]}; best_len=${#folder}
    fi
  done
  owner_cache[$path]=$best
  owner=$best
}

checked=0
for folder in "${!folder_owner[@]}"; do
  self=${folder_owner[$folder]}
  while IFS= read -r file; do
    rel=${file#"$root"/}
    owner_of "$rel"
    [ "$owner" = "$self" ] || continue  # a subfolder that is another library
    checked=$((checked + 1))
    while IFS=: read -r line include; do
      include=${include#*\"}; include=${include%\"*}
      if [ -e "$root/src/$include" ]; then target_path=src/$include
      elif [ -e "$root/$include" ]; then target_path=$include
      else continue
      fi
      owner_of "$target_path"
      [ -z "$owner" ] || [ "$owner" = "$self" ] && continue
      if [[ ${reach[$self]} != *" $owner "* ]]; then
        echo "$rel:$line: includes \"$include\" ($owner), which $self does not link"
        status=1
      fi
    done < <(grep -n '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$file" || true)
  done < <(find "$root/$folder" -maxdepth 1 -type f \( -name '*.h' -o -name '*.cpp' \))
done
if [ $status -eq 0 ]; then
  echo "layers: $checked files of ${#targets[@]} libraries include only what they link"
fi
exit $status
