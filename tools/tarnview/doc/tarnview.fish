# Completion of tarnview for fish.

set -l commands top tree path callers failures compare histogram heat open show check report export \
    load push
set -l fields name user host site req-desc session request result root pid tid depth

complete -c tarnview -n "not __fish_seen_subcommand_from $commands" -f
complete -c tarnview -n __fish_use_subcommand -l version -d 'Print the version'
complete -c tarnview -n __fish_use_subcommand -a top -d 'Figures of all activities of each name'
complete -c tarnview -n __fish_use_subcommand -a tree -d 'Activities as trees'
complete -c tarnview -n __fish_use_subcommand -a path -d 'The critical path of the slowest requests'
complete -c tarnview -n __fish_use_subcommand -a callers -d 'The ways to the activities of a name'
complete -c tarnview -n __fish_use_subcommand -a failures -d 'What failed, grouped'
complete -c tarnview -n __fish_use_subcommand -a compare -d 'What differs between two logs'
complete -c tarnview -n __fish_use_subcommand -a histogram -d 'How many activities took how long'
complete -c tarnview -n __fish_use_subcommand -a heat -d 'How long activities took over time'
complete -c tarnview -n __fish_use_subcommand -a open -d 'What is running'
complete -c tarnview -n __fish_use_subcommand -a show -d 'All about one activity'
complete -c tarnview -n __fish_use_subcommand -a check -d 'Whether a log is whole'
complete -c tarnview -n __fish_use_subcommand -a report -d 'A page for a browser'
complete -c tarnview -n __fish_use_subcommand -a export -d 'For trace viewers and flame graphs'
complete -c tarnview -n __fish_use_subcommand -a load -d 'Logs into a ClickHouse server'
complete -c tarnview -n __fish_use_subcommand -a push -d 'Spans to a receiver of OTLP'
complete -c tarnview -s h -l help -d 'Print help'

# Options of all commands.
set -l any "__fish_seen_subcommand_from $commands"
complete -c tarnview -n $any -l color -x -a 'auto always never' -d 'When there are colours'
complete -c tarnview -n $any -l no-progress -d 'No progress bar'
complete -c tarnview -n $any -l no-rotated -d 'Read the named files only'
complete -c tarnview -n "$any; and not __fish_seen_subcommand_from load push" -l host -x -d 'The host that a log is of, NAME=LOG'
complete -c tarnview -n $any -s o -l output -r -F -d 'Write to this file'

# Filters.
set -l questions 'top path callers failures compare histogram heat'
set -l filtered "__fish_seen_subcommand_from tree report export $questions"
complete -c tarnview -n $filtered -l root -x -d 'Root activity, or the beginning of its id'
complete -c tarnview -n $filtered -l site -x -d 'Site'
complete -c tarnview -n $filtered -l result -x -d 'Result'
complete -c tarnview -n $filtered -l failed -d 'Any result but ok and early-termination'
complete -c tarnview -n $filtered -l not-ok -d 'Any result but ok'
complete -c tarnview -n $filtered -l slower-than -x -d 'Longer than this, as 250ms'
complete -c tarnview -n $filtered -l since -x -d 'Still running at this time or later'
complete -c tarnview -n $filtered -l before -x -d 'Begun before this time'
complete -c tarnview -n "$filtered open show check" -l where -x -d 'A condition on any fields'

set -l timed "$filtered open show"
complete -c tarnview -n $timed -l utc -d 'Times are UTC'
complete -c tarnview -n $timed -l local -d 'Times are local'
complete -c tarnview -n $timed -l relative -d 'Times since the log began'

set -l followed '__fish_seen_subcommand_from top tree open load'
complete -c tarnview -n $followed -s f -l follow -d 'Go on while the log grows'
complete -c tarnview -n $followed -l interval -x -d 'Seconds between two reads of the log'
complete -c tarnview -n $followed -l updates -x -d 'End after so many reads'

set -l question "__fish_seen_subcommand_from $questions"
complete -c tarnview -n "$question tree open show" -l from -x -d 'Ask a ClickHouse server'
complete -c tarnview -n "$question open" -l csv -d 'As CSV'
complete -c tarnview -n "$question open tree show check" -l json -d 'As JSON'

set -l grouped '__fish_seen_subcommand_from top compare'
complete -c tarnview -n $grouped -l by -x -a "(__fish_complete_list , 'printf %s\\\n $fields')" \
    -d 'Group by these fields'

set -l limited '__fish_seen_subcommand_from top failures compare'
complete -c tarnview -n $limited -l limit -x -d 'As many rows at most'

set -l named '__fish_seen_subcommand_from top tree path failures compare histogram heat open report export'
complete -c tarnview -n $named -l name -x -d 'Name, as load*'
complete -c tarnview -n "$named callers" -l user -x -d 'User'
complete -c tarnview -n "$named callers" -l pid -x -d 'Process'

set -l top '__fish_seen_subcommand_from top'
complete -c tarnview -n $top -l sort -x -d 'Sort by this column' \
    -a 'name count failed early open total mean p50 p90 p99 max exclusive cpu memory'
complete -c tarnview -n $top -l reverse -d 'The smallest first'
complete -c tarnview -n $top -l over -x -d 'A row for each interval of this length'

set -l path '__fish_seen_subcommand_from path'
complete -c tarnview -n $path -l by-name -d 'Add up the own times of each name'

set -l callers '__fish_seen_subcommand_from callers'
complete -c tarnview -n $callers -l levels -x -d 'As many levels of callers at most'

set -l failures '__fish_seen_subcommand_from failures'
complete -c tarnview -n $failures -l sort -x -a 'count first last' -d 'Order of the rows'
complete -c tarnview -n $failures -l all -d 'Also consequences'
complete -c tarnview -n $failures -l exact -d 'Tell messages apart by numbers, too'

set -l compare '__fish_seen_subcommand_from compare'
complete -c tarnview -n $compare -l old -r -F -d 'A log of the old side'
complete -c tarnview -n $compare -l at -x -d 'Compare what began before this time with the rest'
complete -c tarnview -n $compare -l sort -x -a 'cost failed change name' -d 'Order of the rows'
complete -c tarnview -n $compare -l significant -d 'Only what is unlikely to differ by chance'

set -l histogram '__fish_seen_subcommand_from histogram'
complete -c tarnview -n $histogram -l of -x -a 'elapsed exclusive cpu memory' -d 'The figure'

set -l heat '__fish_seen_subcommand_from heat'
complete -c tarnview -n $heat -l interval -x -d 'The time that a column covers'

set -l trees '__fish_seen_subcommand_from tree path report export'
complete -c tarnview -n $trees -l slowest -x -d 'The trees whose roots took longest'

set -l tree '__fish_seen_subcommand_from tree'
complete -c tarnview -n $tree -l last -x -d 'The trees that began last'
complete -c tarnview -n $tree -l depth -x -d 'As many levels at most'
complete -c tarnview -n $tree -s a -l attributes -d 'Attributes and supplements too'
complete -c tarnview -n $tree -s m -l messages -d 'Messages too'
complete -c tarnview -n $tree -l fold -x -d 'Siblings of one name that are shown one by one'
complete -c tarnview -n $tree -l label -x -a "(__fish_complete_list , 'printf %s\\\n $fields')" \
    -d 'Fields behind each name'

set -l open '__fish_seen_subcommand_from open'
complete -c tarnview -n $open -l stuck -x -d 'Only what has been running as long as this'
complete -c tarnview -n $open -l now -d 'Measure up to now'
complete -c tarnview -n $open -l silent-after -x -d 'When a process is called silent'

set -l check '__fish_seen_subcommand_from check'
set -l kinds unreadable long cut broken-file lost gap duplicate wrong no-begin repeated orphan \
    cycle clock died crash figures never-ended
complete -c tarnview -n $check -l ignore -x -a "(__fish_complete_list , 'printf %s\\\n $kinds')" \
    -d 'Kinds of faults to ignore'
complete -c tarnview -n $check -s q -l quiet -d 'No summary'

set -l export '__fish_seen_subcommand_from export'
complete -c tarnview -n $export -l to -x -a 'chrome perfetto speedscope otlp folded pprof' -d 'The format'
complete -c tarnview -n $export -l weight -x -a 'time cpu memory' -d 'Weight of folded stacks'
complete -c tarnview -n $export -l service -x -d 'The service.name for otlp'

set -l load '__fish_seen_subcommand_from load'
complete -c tarnview -n $load -l to -x -d 'Where the engine answers, and the database'
complete -c tarnview -n $load -l cluster -x -d 'Make the tables on all servers of this cluster'
complete -c tarnview -n $load -l checkpoint -r -F -d 'How far the logs are loaded'
complete -c tarnview -n $load -l block-lines -x -d 'Send as many lines together at most'
complete -c tarnview -n $load -l timeout -x -d 'End when the engine takes nothing for so long'

set -l push '__fish_seen_subcommand_from push'
complete -c tarnview -n $push -l checkpoint -r -F -d 'How far the logs are pushed'
complete -c tarnview -n $push -l json -d 'JSON instead of protobuf'
complete -c tarnview -n $push -l gzip -d 'Compressed'
complete -c tarnview -n $push -l header -x -d 'Of each request, as NAME=VALUE'
complete -c tarnview -n $push -l service -x -d 'service.name'
