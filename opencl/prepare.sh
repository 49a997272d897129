#!/usr/bin/env bash
# prepare.sh BUILTINS LIBRARY FOLDER: makes FOLDER/with-tuvo, which runs a program with PoCL bound to the library, and
# FOLDER/beside, with both PoCL's own built-ins and, under names that begin with tuvo_, the library's.
#
# PoCL looks for its data beside its own object, so each gets a private copy of PoCL's folder with another library of
# built-ins. PoCL picks one of several by processor: copied are that of this processor and that of a processor with AVX
# and nothing newer.
set -euo pipefail
builtins=$1 library=$2 folder=$3
# Read to its end: ldconfig may not find its reader gone.
runtime=$(ldconfig -p | awk '/libpocl\.so\.2 / && !path { path = $NF } END { print path }')
[ -n "$runtime" ] || { echo "prepare.sh: PoCL is missing (pocl-opencl-icd)" >&2; exit 1; }
data=$(realpath "$(dirname "$runtime")/../../share/pocl")
flags=" $(grep -m 1 '^flags' /proc/cpuinfo) "
kind=avx
for flag in avx512f:avx512 avx2:avx2 fma4:avx_fma4 f16c:avx_f16c; do
    [[ $flags == *" ${flag%:*} "* ]] && { kind=${flag#*:}; break; }
done

# link_builtins KIND PREFIX TARGET [OPTION]: PoCL's library of that kind with the built-ins, PREFIX in their names. Their
# module is PoCL's processor's.
link_builtins() {
    local bits=256 name=kernel-x86_64-pc-linux-gnu-$1.bc
    [ "$1" = avx512 ] && bits=512
    "$builtins" --abi x86-64 --register-bits $bits --prefix "$2" --pointers opaque --variants called --out "$3.ll"
    llvm-as-15 "$3.ll" -o "$3.bc"
    llvm-link-15 --suppress-warnings "$data/$name" ${4:+"$4"} "$3.bc" -o "$3/share/pocl/$name"
    rm "$3.ll" "$3.bc"
}

# make_folder TARGET PREFIX [OPTION]
make_folder() {
    local target=$1
    rm -rf "$target"
    mkdir -p "$target"/{lib/x86_64-linux-gnu,share/pocl,vendors,cache}
    cp -L "$runtime" "$target/lib/x86_64-linux-gnu/"
    cp -r "$(dirname "$runtime")/pocl" "$target/lib/x86_64-linux-gnu/"
    cp -r "$data/include" "$target/share/pocl/"
    echo "$target/lib/x86_64-linux-gnu/$(basename "$runtime")" >"$target/vendors/pocl.icd"
    link_builtins "$kind" "$2" "$target" "${3:-}"
    [ "$kind" = avx ] || link_builtins avx "$2" "$target" "${3:-}"
}

# make_launcher FILE TARGET. PoCL's cache may be set from outside: it doesn't tell apart what was compiled for which processor.
make_launcher() {
    cat >"$1" <<TEXT
#!/bin/sh
export OCL_ICD_VENDORS='$2/vendors' POCL_CACHE_DIR="\${POCL_CACHE_DIR:-$2/cache}" LD_PRELOAD="\${LD_PRELOAD:+\$LD_PRELOAD:}$library"
exec "\$@"
TEXT
    chmod +x "$1"
}

mkdir -p "$folder"
make_folder "$folder/bound" _cl_ --override
make_folder "$folder/both" tuvo_
make_launcher "$folder/with-tuvo" "$folder/bound"
make_launcher "$folder/beside" "$folder/both"
