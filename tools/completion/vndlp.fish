# Completion of vndlp for fish. Commands, options and settings are those that the program's help lists.

function __vndlp_section --argument-names section
    vndlp $argv[2..-1] --help 2>/dev/null | awk -v section="$section" '
        /^[^ ]/ { inside = index($0, section) == 1 }
        inside && /^  [^ ]/ { gsub(",", "\n", $1); print $1 }'
end

function __vndlp_command
    for word in (commandline -opc)[2..-1]
        if not string match -q -- '-*' $word
            echo $word
            return 0
        end
    end
    return 1
end

function __vndlp_previous --argument-names option
    test (commandline -opc)[-1] = "$option"
end

complete -c vndlp -n 'not __vndlp_command >/dev/null' -f -a '(__vndlp_section Subcommands; __vndlp_section Options)'
complete -c vndlp -n '__vndlp_command >/dev/null' -a '(string match -q -- "-*" (commandline -ct); and __vndlp_section Options (__vndlp_command))'
complete -c vndlp -n '__vndlp_previous --set' -f -a '(__vndlp_section Settings convert | string replace -r \$ =)'
complete -c vndlp -n '__vndlp_previous --machine' -f -a '(vndlp machines --names)'
