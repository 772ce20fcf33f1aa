# fish completion for kova-simulator: its options, and the commands of a running simulator

function __kova_simulator_offer
    set -l words (commandline -opc) (commandline -ct)
    switch "$words[2]:"(count $words)
        case play:3
            __fish_complete_path (commandline -ct)
        case 'send:2' 'play:2' 'check-gsmd:2' ':2' '*:2'
            printf '%s\n' send play check-gsmd
            $words[1] --help 2>/dev/null | string match -rg '^ +(?:-., )*(--[a-z-]+)'
        case 'send:*'
            $words[1] send complete $words[3..] 2>/dev/null
        case check-gsmd:3
            printf '%s\n' call sms
    end
end

complete -c kova-simulator -f -a '(__kova_simulator_offer)'
