# Completion of zpd for fish: zpd itself tells what can stand there.

function __zpd_complete
    set -l words (commandline -opc)
    set -l word (commandline -ct)
    for line in (command $words[1] complete -- $words[2..] "$word" 2>/dev/null)
        switch $line
            case \t'files'
                __fish_complete_path "$word"
            case \t'folders'
                __fish_complete_directories "$word" ''
            case \t'cards'
                __fish_complete_suffix .vcf
            case '*'
                printf '%s\n' $line
        end
    end
end

complete -c zpd -f -a '(__zpd_complete)'
