#compdef tarnview
# Completion of tarnview for zsh.

_tarnview_fields() {
    _values -s , field name user host site req-desc session request result root pid tid depth \
        attributes. body.
}

_tarnview_kinds() {
    _values -s , kind unreadable long cut broken-file lost gap duplicate wrong no-begin repeated \
        orphan cycle clock died crash figures never-ended
}

_tarnview() {
    local -a commands common named filters its times follow
    local where
    commands=(
        'top:figures of all activities of each name, or other group'
        'tree:activities as trees, with figures and failures'
        'path:the critical path of the slowest requests'
        'callers:the ways to the activities of a name'
        'failures:what failed, grouped by what it says'
        'compare:what differs between two logs'
        'histogram:how many activities took how long'
        'heat:how long activities took over time'
        'open:what is running, or was when the log ended'
        'show:all about one activity'
        'check:whether a log is whole'
        'report:a page for a browser'
        'export:activities for trace viewers and flame graphs'
        'load:logs into a ClickHouse server or cluster'
        'push:spans to a receiver of OTLP'
    )
    common=(
        '(- *)'{-h,--help}'[print help]'
        '--color[when there are colours]:when:(auto always never)'
        '--no-progress[no progress bar]'
        '--no-rotated[read the named files only]'
        '(-o --output)'{-o,--output}'[write to this file]:file:_files'
    )
    named=(
        '*--name[name]:pattern:'
        '*--user[user]:pattern:'
        '*--pid[process]:id:'
    )
    where='--where[a condition on any fields]:condition:'
    times=(
        '(--local --relative)--utc[times are UTC]'
        '(--utc --relative)--local[times are local]'
        '(--utc --local)--relative[times since the log began]'
    )
    follow=(
        '(-f --follow)'{-f,--follow}'[go on while the log grows]'
        '--interval[seconds between two reads of the log]:seconds:'
        '--updates[end after so many reads]:number:'
    )
    filters=(
        $named
        '*--root[root activity, or the beginning of its id]:id:'
        '*--site[site]:pattern:'
        '*--result[result]:pattern:'
        "--failed[any result but 'ok' and 'early-termination']"
        "--not-ok[any result but 'ok']"
        "--slower-than[longer than this, as '250ms']:duration:"
        '--since[still running at this time or later]:time:'
        '--before[begun before this time]:time:'
        $where
        $times
    )
    local -a table question
    local from='--from[ask a ClickHouse server that has the logs]:url:'
    table=('(--json)--csv[as CSV]' '(--csv)--json[as JSON]')
    question=($filters $table $from)

    local curcontext=$curcontext state line
    _arguments -C '(- *)'{-h,--help}'[print help]' '(- *)--version[print the version]' \
        '1:command:->command' '*::argument:->argument' && return
    if [[ $state == command ]]; then
        _describe command commands
        return
    fi

    local slowest='--slowest[the trees whose roots took longest]:number:'
    case $words[1] in
        top)
            its=($question $follow
                '--by[group by these fields]:fields:_tarnview_fields'
                '(--sort)--over[a row for each interval of this length]:duration:'
                '--sort[sort by this column]:column:(name count failed early open total mean p50 p90 p99 max exclusive cpu memory)'
                '--reverse[the smallest first]'
                '--limit[as many rows at most]:number:')
            ;;
        path)
            its=($question
                '--slowest[the trees whose roots took longest]:number:'
                '--by-name[add up the own times of each name]')
            ;;
        callers)
            its=(${question:#*--name*}
                '1:name:'
                '--levels[as many levels of callers at most]:number:')
            ;;
        failures)
            its=($question
                '--sort[order of the rows]:order:(count first last)'
                '--limit[as many rows at most]:number:'
                '--all[also what failed because something below it did]'
                '--exact[tell messages apart that differ in numbers only]')
            ;;
        compare)
            its=($question
                '*--old[a log of the old side]:log:_files'
                '--at[compare what began before this time with the rest]:time:'
                '--by[group by these fields]:fields:_tarnview_fields'
                '--sort[the greatest difference first]:order:(cost failed change name)'
                '--limit[as many rows at most]:number:'
                '--significant[only what is unlikely to differ by chance]')
            ;;
        histogram)
            its=($question '--of[figure]:figure:(elapsed exclusive cpu memory)')
            ;;
        heat) its=($question '--interval[the time that a column covers]:duration:') ;;
        tree)
            its=($filters $follow $from "(--last)$slowest"
                '(--slowest)--last[the trees that began last]:number:'
                '--depth[as many levels at most]:number:'
                '(-a --attributes)'{-a,--attributes}'[attributes and supplements too]'
                '(-m --messages)'{-m,--messages}'[messages too]'
                '--fold[siblings of one name that are shown one by one]:number:'
                '--label[fields behind each name]:fields:_tarnview_fields'
                '--json[as JSON]')
            ;;
        open)
            its=($named $where $times $follow $table $from
                '--stuck[only what has been running as long as this]:seconds:'
                '--now[measure up to now]'
                '--silent-after[when a process is called silent]:seconds:')
            ;;
        show) its=('1:id:' $where $times $from '--json[as JSON]') ;;
        check)
            its=('--ignore[kinds of faults to ignore]:kinds:_tarnview_kinds'
                '(-q --quiet)'{-q,--quiet}'[no summary]'
                $where '--json[as JSON]')
            ;;
        report) its=($filters $slowest) ;;
        export)
            its=($filters $slowest
                '--to[the format]:format:(chrome perfetto speedscope otlp folded pprof)'
                '--weight[weight of folded stacks]:weight:(time cpu memory)'
                '--service[of otlp\: service.name]:name:')
            ;;
        load)
            its=($follow
                '--to[where the engine answers, and the database]:url:'
                '--cluster[make the tables on all servers of this cluster]:name:'
                '--checkpoint[how far the logs are loaded]:file:_files'
                '--block-lines[send as many lines together at most]:number:'
                '--timeout[end when the engine takes nothing for so long]:seconds:')
            ;;
        push)
            its=('1:url:'
                '--checkpoint[how far the logs are pushed]:file:_files'
                '--json[JSON instead of protobuf]'
                '--gzip[compressed]'
                '*--header[of each request]:name=value:'
                '--service[service.name]:name:')
            ;;
    esac
    [[ $words[1] == (load|push) ]] || its+=('*--host[the host that a log is of]:name=log:')
    _arguments $common $its '*:log:_files'
}

_tarnview "$@"
