# Sourced by the other scripts: where the project is, how failures are reported, how many jobs.

project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

# Checkouts in different places share what ccache keeps.
export CCACHE_BASEDIR=$project_root CCACHE_NOHASHDIR=1
# So that it keeps what is compiled with precompiled headers.
export CCACHE_SLOPPINESS=pch_defines,time_macros
# It learns from the compiler what a source includes, and need not run the preprocessor for it.
export CCACHE_DEPEND=1

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

say() {
    printf '\n== %s\n' "$*"
}

# usage <exit code>: prints the comment at the head of the calling script.
usage() {
    sed -n '2,/^$/{s/^# \{0,1\}//p}' "$0"
    exit "$1"
}

# Tracked and new files that git does not ignore, one a line; arguments are git patterns. The
# safe.directory setting lets a checkout of another user be read.
project_files() {
    git -c safe.directory="$project_root" -C "$project_root" \
        ls-files --cached --others --exclude-standard -- "$@" |
        while IFS= read -r file; do
            [ -f "$project_root/$file" ] && printf '%s\n' "$file" || true
        done | sort -u
}

# build_preset <preset> [target...]: configures and builds in build/<preset>.
build_preset() {
    local preset=$1 targets=()
    shift
    [ $# -eq 0 ] || targets=(--target "$@")
    (
        cd "$project_root"
        cmake --preset "$preset"
        cmake --build --preset "$preset" --parallel "$jobs" "${targets[@]}"
    )
}

# test_preset <preset> [argument of ctest...]. Some tests sleep: one more than there are processors keeps
# these busy.
test_preset() {
    local preset=$1
    shift
    (cd "$project_root" && ctest --preset "$preset" --output-on-failure --parallel $((jobs + 1)) "$@")
}
