#!/usr/bin/env bash
# The library and the host interfaces may include only the C++ standard library and each other (host/ from
# both, the library's own headers from DevLaser/), so that a controller vendor can build the plug-in against
# their own host. Prints every include that breaks this and fails.
set -u
root=${1:-$(cd "$(dirname "$0")/.." && pwd)}
std_headers=" algorithm any array atomic barrier bit bitset cassert cctype cerrno cfloat charconv chrono cinttypes
 climits clocale cmath compare complex concepts condition_variable cstdarg cstddef cstdint cstdio cstdlib cstring
 ctime cwchar cwctype deque exception execution filesystem format forward_list fstream functional future
 initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map memory memory_resource
 mutex new numbers numeric optional ostream queue random ranges ratio regex scoped_allocator semaphore set
 shared_mutex source_location span sstream stack stdexcept stop_token streambuf string string_view syncstream
 system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant
 vector version "
std_headers=" $(echo $std_headers) "
bad=0
while IFS= read -r line; do
  file=${line%%:*}
  inc=$(sed -E 's/^[^:]*:[0-9]+:\s*#\s*include\s*//' <<<"$line")
  case "$inc" in
    \<*\>)
      name=${inc#<}; name=${name%>}
      [[ "$std_headers" == *" $name "* ]] || { echo "not a standard header: $line"; bad=1; } ;;
    \"*\")
      name=${inc#\"}; name=${name%\"}
      dir=$(dirname "$file")
      if [[ -f "$dir/$name" || -f "$root/$name" && "$name" == host/* || -f "$root/DevLaser/$name" ]]; then
        resolved=$(realpath -m "$( [[ -f "$dir/$name" ]] && echo "$dir/$name" || { [[ "$name" == host/* ]] && echo "$root/$name" || echo "$root/DevLaser/$name"; })")
        case "$resolved" in
          "$root"/host/*) ;;
          "$root"/DevLaser/*) [[ "$file" == "$root"/host/* ]] && { echo "host/ includes the library: $line"; bad=1; } ;;
          *) echo "outside host/ and DevLaser/: $line"; bad=1 ;;
        esac
      else
        echo "unresolved include: $line"; bad=1
      fi ;;
    *) echo "unreadable include: $line"; bad=1 ;;
  esac
done < <(grep -rnE '^\s*#\s*include' "$root/host" "$root/DevLaser" --include='*.h' --include='*.cpp')
if [[ $bad -ne 0 ]]; then exit 1; fi
echo "include boundary holds: host/ and DevLaser/ use only the standard library and host/"
