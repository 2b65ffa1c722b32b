# Completion of kro for bash, made from its table of commands by tools/tool_pages.py.
# Where nothing else is known it completes names of files.
_kro() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} words= chosen=
    COMPREPLY=()
    if ((COMP_CWORD == 1)) || [[ $command == help && $COMP_CWORD == 2 && $current != -* ]]; then
        COMPREPLY=($(compgen -W 'help err eval run debug list match scan automaton ini xml mml proc log logd messages net shell version' -- "$current"))
        return
    fi
    case $command:$before in
        log:-l|log:--level) words='none hint warn failed error bad debug'; chosen=1 ;;
        net:-l|net:--loop) words='selector poller epoller'; chosen=1 ;;
    esac
    if [[ -z $chosen && $current == -* ]]; then
        case $command in
        help) words='-t --table -h --help' ;;
        err) words='--help' ;;
        eval) words='-D --define --help' ;;
        run) words='-o --out -k --keep -D --define -h --help' ;;
        debug) words='-D --define -h --help' ;;
        list) words='-h --help' ;;
        match) words='--help' ;;
        scan) words='-h --help' ;;
        automaton) words='-n --nfa -d --dfa -g --dot -t --table -c --cpp -h --help' ;;
        ini) words='-f --force --help' ;;
        xml) words='-p --pretty -c --compact -e --events -t --tree --help' ;;
        mml) words='-m --make -h --help' ;;
        proc) words='-d --dir -i --in -h --help' ;;
        log) words='-f --file -u --udp -c --context -l --level --help' ;;
        logd) words='-p --port -a --host -o --out -n --count -h --help' ;;
        messages) words='-h --help' ;;
        net) words='-l --loop -u --udp -n --count -h --help' ;;
        shell) words='-h --help' ;;
        version) words='-h --help' ;;
        esac
    elif [[ -z $chosen ]]; then
        case $command:$COMP_CWORD in
        ini:3) words='get set unset list' ;;
        xml:3) words='get set rm' ;;
        proc:2) words='run time' ;;
        net:2) words='echo sink send ping addr' ;;
        esac
    fi
    COMPREPLY=($(compgen -W "$words" -- "$current"))
}
complete -o default -F _kro kro
