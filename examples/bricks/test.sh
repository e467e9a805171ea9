#!/bin/bash
# Runs the host on small volumes made here: test.sh FOLDER COMMAND...
#
# Figures and picture are compared with what awk computes from the same voxels. Every file that is
# no whole volume has to end with one line on standard error, exit code 1, and no trace of a picture.
set -euo pipefail
folder=$1
shift
host=("$@")
export LC_ALL=C TOLVANE_CACHESIZE=1M
rm -rf "$folder"
mkdir -p "$folder"
cd "$folder"

failures=0
fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# ---------------------------------------------------------------------------------------- volumes

width=21 height=18 depth=13 # three times three times two bricks of edge 8, most of them cut

patch() { # FILE OFFSET BYTES as for printf
  # shellcheck disable=SC2059
  printf "$3" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

sizes() { # N...: as 16-bit numbers, least byte first
  for n in "$@"; do printf '\\x%02x\\x%02x' $((n & 255)) $((n >> 8 & 255)); done
}

volume() { # FILE: header, then the voxels
  head -c 352 /dev/zero >"$1"
  patch "$1" 0 '\x5c\x01'
  patch "$1" 40 "$(sizes 3 $width $height $depth)"
  patch "$1" 70 '\x02'
  patch "$1" 108 '\x00\x00\xb0\x43' # 352 as a float
  patch "$1" 344 'n+1'
  cat voxels >>"$1"
}

changed() { # FILE OFFSET BYTES: the volume with other bytes in its header
  volume "$1"
  patch "$1" "$2" "$3"
}

# shellcheck disable=SC2059
printf "$(awk -v w=$width -v h=$height -v d=$depth 'BEGIN {
  for (z = 0; z < d; ++z) for (y = 0; y < h; ++y) for (x = 0; x < w; ++x)
    printf "\\%03o", (x * 7 + y * y * 3 + z * z * 31) % (y > 15 ? 1 : 241)
}')" >voxels
volume good.nii
gzip -nk good.nii

# What the host has to find: the figures, and the rows of the picture.
od -An -v -tu1 -w1 voxels | awk -v w=$width -v h=$height -v d=$depth '
  { value[NR - 1] = $1; sum += $1; if ($1 > most) most = $1 }
  END {
    for (i = 0; i < NR; ++i) above += value[i] * NR > sum
    printf "volume       %d x %d x %d voxels in 18 bricks\n", w, h, d
    printf "mean         %.6f\nabove mean   %d voxels\nmaximum      %d\n", sum / NR, above, most
    printf "projection   %d x %d pixels\n", h, d
    for (i = 0; i < h * d; ++i) {
      for (x = 0; x < w; ++x) if (value[i * w + x] > line[i]) line[i] = value[i * w + x]
      if (line[i] > 0) { ++count[line[i]]; ++lit }
    }
    for (i = 0; i < 256; ++i) { below += count[i]; shade[i] = int(255 * below / lit) }
    for (z = d - 1; z >= 0; --z) for (y = 0; y < h; ++y)
      printf("%d%s", (line[z * h + y] > 0 ? shade[line[z * h + y]] : 0), (y < h - 1 ? " " : "\n")) >"rows"
  }' >figures

pixels() { # PNG: its rows as numbers, from its one piece of compressed data
  local size
  size=$(od -An -tu4 --endian=big -j33 -N4 "$1")
  { printf '\x1f\x8b\x08\0\0\0\0\0\0\0' && tail -c +44 "$1" | head -c $((size - 6)); } |
    { gzip -dc 2>/dev/null || true; } | # the checksum is not that of gzip
    od -An -v -tu1 -w$((height + 1)) | awk '{ $1 = ""; $0 = $0; $1 = $1; print }'
}

# ---------------------------------------------------------------------------------------- whole ones

changed moved.nii 108 '\x00\x80\xb0\x43' # the voxels begin at 353
{ head -c 352 moved.nii && printf x && cat voxels; } >gap.nii
changed swapped.nii 0 '\x00\x00\x01\x5c' # the header in the other byte order
patch swapped.nii 40 '\x00\x03\x00\x15\x00\x12\x00\x0d'
patch swapped.nii 70 '\x00\x02'
patch swapped.nii 108 '\x43\xb0\x00\x00'
changed fourth.nii 40 "$(sizes 4 $width $height $depth 1)"

for file in good.nii.gz good.nii gap.nii swapped.nii fourth.nii; do
  for budget in 3000 1000G; do
    if ! TOLVANE_CACHESIZE=$budget "${host[@]}" $file $file.$budget.png 8 >out 2>err; then
      fail "$file with $budget: $(cat err)"
      continue
    fi
    tr -d '\r' <out | sed '/^$/,$d' | diff - figures || fail "$file with $budget: the figures"
    pixels $file.$budget.png | diff - rows || fail "$file with $budget: the picture"
    read -r limit insertions releases again peak _ < <(tr -d '\r' <out | tail -n 1)
    if [[ $budget == 3000 ]]; then
      ((limit == 3000 && peak <= 3000 && again > 0 && insertions == 18 + again &&
        releases < insertions && releases >= again)) || fail "the table: $(tail -n 1 out)"
    else
      ((insertions == 18 && releases == 0 && again == 0 && peak > 4914)) ||
        fail "the table: $(tail -n 1 out)"
    fi
  done
done
cmp good.nii.gz.3000.png good.nii.gz.1000G.png || fail "two budgets, two pictures"

# ---------------------------------------------------------------------------------------- the others

refused() { # CODE, TEXT of the line, arguments of the host...: nothing is written
  local code=0 want=$1 text=$2
  shift 2
  "${host[@]}" "$@" >out 2>err || code=$?
  ((code == want)) || fail "$*: ended with $code"
  [[ ! -s out ]] || fail "$*: printed $(cat out)"
  [[ $(wc -l <err) == 1 && $(cat err) == *"$text"* ]] || fail "$*: said $(cat err)"
  [[ -z $(find . -name '*.part') ]] || fail "$*: left $(find . -name '*.part')"
}

is_refused() { # FILE, TEXT of the line: a picture from before stays
  rm -f new.png
  refused 1 "bricks: $1: $2" "$1" new.png
  [[ ! -e new.png ]] || fail "$1: wrote a picture"
  echo before >old.png
  refused 1 "bricks: $1: $2" "$1" old.png
  [[ $(cat old.png) == before ]] || fail "$1: changed the picture"
}

is_refused missing.nii "cannot be opened"
mkdir folder.nii
is_refused folder.nii "cannot be "
: >empty.nii
is_refused empty.nii "is no NIfTI-1 volume"
echo "no volume at all" >short.nii
is_refused short.nii "is no NIfTI-1 volume"
head -c 5000 /dev/zero >zeros.nii
is_refused zeros.nii "is no NIfTI-1 volume"
is_refused good.nii.gz.3000.png "is no NIfTI-1 volume"
changed pair.nii 344 'ni1'
is_refused pair.nii "is no NIfTI-1 volume in one file"

size=$(stat -c %s good.nii.gz)
for cut in 19 200 $((size / 2)) $((size - 9)) $((size - 8)) $((size - 1)); do
  head -c "$cut" good.nii.gz >cut.nii.gz
  is_refused cut.nii.gz "is cut off"
done
for cut in 1 5 10; do # not even a whole header of gzip
  head -c "$cut" good.nii.gz >cut.nii.gz
  is_refused cut.nii.gz "is "
done
for cut in 352 353 5000 $((352 + width * height * depth - 1)); do
  head -c "$cut" good.nii >cut.nii
  is_refused cut.nii "ends after $cut of 5266 bytes"
done
head -c 350 good.nii >cut.nii
is_refused cut.nii "ends after 350 of 352 bytes"
cp good.nii.gz damaged.nii.gz
patch damaged.nii.gz $((size - 6)) '\x00\x00'
is_refused damaged.nii.gz "is damaged"
cp good.nii.gz damaged.nii.gz
patch damaged.nii.gz $((size / 2)) '\xff\xff\xff\xff\xff\xff\xff\xff'
is_refused damaged.nii.gz "is "
{ cat good.nii && printf x; } >longer.nii
is_refused longer.nii "has more voxels than its header says"
gzip -nk longer.nii
is_refused longer.nii.gz "has more voxels than its header says"

changed type.nii 70 '\x04'
is_refused type.nii "has voxels of type 4"
for dimensions in "2 21 234" "0" "8 21 18 13 1 1 1 1" "3 0 18 13" "3 21 65535 13" "4 21 18 13 2"; do
  changed dimensions.nii 40 '\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0'
  # shellcheck disable=SC2086
  patch dimensions.nii 40 "$(sizes $dimensions)"
  is_refused dimensions.nii "does not have the three dimensions of a volume"
done
changed huge.nii 40 "$(sizes 3 32767 32767 32767)"
is_refused huge.nii "ends after 5266 of"
for offset in '\x00\x00\x00\x00' '\x00\x00\xc0\x7f' '\x00\x00\x80\x7f' '\x00\x00\xb0\xc3' \
  '\x28\x6b\x6e\x7e'; do
  changed offset.nii 108 "$offset"
  is_refused offset.nii "does not say where its voxels begin"
done

refused 1 "cannot be written" good.nii no/such/folder.png 8
mkdir taken.png
refused 1 "cannot be written" good.nii taken.png 8
refused 1 "the picture would take its place" good.nii good.nii 8
TOLVANE_CACHESIZE=100 refused 1 "no room for a brick" good.nii none.png 8
[[ ! -e none.png ]] || fail "a picture without room for a brick"
for edge in 0 3 -8 8x "" 1025 99999999999999999999; do refused 2 usage good.nii none.png "$edge"; done
refused 2 usage
refused 2 usage good.nii
refused 2 usage good.nii none.png 8 more

((failures == 0)) || exit 1
echo "all as it should be"
