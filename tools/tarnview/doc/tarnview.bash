# Completion of tarnview for bash.

_tarnview() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local commands="top tree path callers failures compare histogram heat open show check report"
    commands+=" export load push"
    local common="--help --output --color --no-progress --no-rotated"
    local hosted="$common --host"
    local filters="--root --name --user --pid --site --result --failed --not-ok --slower-than"
    filters+=" --since --before --where"
    local times="--utc --local --relative"
    filters+=" $times"
    local follow="--follow --interval --updates"
    local question="$hosted $filters --from --csv --json"
    local fields="name user host site req-desc session request result root pid tid depth"
    local columns="count failed early open total mean p50 p90 p99 max exclusive cpu memory"
    local kinds="unreadable long cut broken-file lost gap duplicate wrong no-begin repeated orphan cycle clock"
    kinds+=" died crash figures never-ended"
    COMPREPLY=()

    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands --help --version" -- "$current")
        return
    fi
    local words=
    case $previous in
        --to)
            [ "${COMP_WORDS[1]}" = export ] || return
            words="chrome perfetto speedscope otlp folded pprof"
            ;;
        --weight) words="time cpu memory" ;;
        --color) words="auto always never" ;;
        --by | --label) words=$fields ;;
        --of) words="elapsed exclusive cpu memory" ;;
        --sort)
            case ${COMP_WORDS[1]} in
                failures) words="count first last" ;;
                compare) words="cost failed change name" ;;
                *) words="$columns $fields" ;;
            esac
            ;;
        --ignore) words=$kinds ;;
        --root | --name | --user | --pid | --site | --result | --slower-than | --since | --before | \
            --where | --at | --over | --levels | --limit | --slowest | --last | --depth | --stuck | \
            --interval | --updates | --service | --silent-after | --fold | --header | --from | \
            --cluster | --block-lines | --timeout | --host)
            return
            ;;
    esac
    if [[ $current == *,* && ($previous == --by || $previous == --label || $previous == --ignore) ]]; then
        # The last one of a list; what is before it stays.
        mapfile -t COMPREPLY < <(compgen -P "${current%,*}," -W "$words" -- "${current##*,}")
        return
    fi
    if [ -n "$words" ]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
        return
    fi
    if [[ $current == -* && $previous != --output && $previous != -o && $previous != --old &&
        $previous != --checkpoint ]]; then
        case ${COMP_WORDS[1]} in
            top) words="$question $follow --by --sort --reverse --limit --over" ;;
            path) words="$question --slowest --by-name" ;;
            callers) words="${question/ --name/} --levels" ;;
            failures) words="$question --sort --limit --all --exact" ;;
            compare) words="$question --old --at --by --sort --limit --significant" ;;
            histogram) words="$question --of" ;;
            heat) words="$question --interval" ;;
            tree)
                words="$hosted $filters $follow --from --slowest --last --depth --attributes --messages --fold"
                words+=" --label --json"
                ;;
            open)
                words="$hosted $times $follow --from --stuck --now --silent-after --name --user --pid --where"
                words+=" --csv --json"
                ;;
            show) words="$hosted $times --from --where --json" ;;
            check) words="$hosted --ignore --quiet --where --json" ;;
            report) words="$hosted $filters --slowest" ;;
            export) words="$hosted $filters --to --weight --service --slowest" ;;
            load) words="$common $follow --to --cluster --checkpoint --block-lines --timeout" ;;
            push) words="$common --checkpoint --json --gzip --header --service" ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    compopt -o filenames 2>/dev/null
}

complete -F _tarnview tarnview
