# shellcheck shell=bash
# What the scripts share; each sources it first. It goes to the top of the repository.

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit

# show_status: passes ninja's status lines on to a terminal, each over the one before; without a terminal nothing.
show_status() {
    if [[ ! -t 2 ]]; then
        cat >/dev/null
        return
    fi
    local line
    while IFS= read -r line; do
        [[ $line != \[* ]] || printf '\r\033[K%.79s' "$line" >&2
    done
    printf '\r\033[K' >&2
}

# build_preset PRESET: configures the preset of that name and builds it, quietly unless something fails.
build_preset() {
    local folder=build/$1
    if ! mkdir -p "$folder" 2>/dev/null || [[ ! -w $folder ]]; then
        echo "${0##*/}: $(id -un) cannot write to $PWD/$folder; clone the repository to a folder of your own" >&2
        return 1
    fi
    echo "Building in $folder" >&2
    if ! { cmake --preset "$1" && cmake --build --preset "$1" --parallel "$(nproc)"; } 2>&1 |
        tee "$folder/build.log" | show_status; then
        cat "$folder/build.log" >&2
        return 1
    fi
}

# run_tests PRESET [CTEST-OPTION...]: builds the preset and runs its tests in parallel; without options, the calls of the
# store by family instead of by operation. Without a terminal, only failures and the summary are shown; tests.log has all.
run_tests() {
    local options=(--preset "$1" --parallel "$(nproc)" --no-label-summary "${@:2}") show=(cat)
    [[ $# -gt 1 ]] || options+=(--label-exclude operation)
    [[ -t 1 ]] || show=(sed --unbuffered --regexp-extended '/^ *Start +[0-9]+: /d; / Passed +[0-9.]+ sec$/d')
    build_preset "$1"
    mkdir -p "build/$1/tmp"
    TMPDIR=$PWD/build/$1/tmp ctest "${options[@]}" | tee "build/$1/tests.log" | "${show[@]}"
}

# library_version: as the public header has it.
library_version() {
    sed -n 's/^#define ZEL_COMMON_VERSION_[A-Z]* \([0-9]*\)$/\1/p' src/zel_common.h | paste -sd .
}
