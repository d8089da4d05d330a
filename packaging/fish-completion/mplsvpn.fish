# Completion of mplsvpn for fish. The program itself knows which words may follow.
function __mplsvpn_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l candidates ($words[1] complete -- $words[2..] "$current" 2>/dev/null)
    if test "$candidates[1]" = ":files"
        # The part before the path is empty, or the "--run-dir=" of --run-dir=FOLDER.
        set -l before (string match -r -- '^--[^=]*=|^' "$current")
        printf "$before%s\n" (__fish_complete_path (string replace -- "$before" '' "$current"))
    else
        printf '%s\n' $candidates
    end
end
complete -c mplsvpn -f -a '(__mplsvpn_complete)'
