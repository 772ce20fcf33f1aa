# fish completion for phonectl, from its hidden command "complete"

function __phonectl_offer
    set -l words (commandline -opc) (commandline -ct)
    set -l offered ($words[1] complete $words[2..] 2>/dev/null)
    if test "$offered" = :files
        __fish_complete_path (commandline -ct)
    else if set -q offered[1]
        printf '%s\n' $offered
    end
end

complete -c phonectl -f -a '(__phonectl_offer)'
