# What zsh offers at the end of a command line: complete.zsh FOLDER LINE, where FOLDER holds the
# completion as `_tarnview`. A shell of its own is typed into, as a person would.
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell "PS1= PROMPT_EOL_MARK= LISTMAX=10000; stty rows 400 columns 200"
zpty -w shell "fpath=(${(q)1} \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w shell "autoload -Uz _tarnview; compdef _tarnview tarnview"
# Keys that come before the line editor runs would go to the terminal.
zpty -w shell "zle-line-init() { print rea''dy }; zle -N zle-line-init"
zpty -r -m shell text '*ready*'
zpty -w -n shell "$2"$'\C-d'$'\C-u'"echo do''ne"$'\n'
zpty -r -m shell text '*done*'
print -r -- $text
