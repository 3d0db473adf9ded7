# Completion of vemocachectl for fish. The tool itself tells what may come; see "vemocachectl --complete".

function __vemocachectl_complete
    set -l words (commandline --tokenize --cut-at-cursor --current-process)
    set -l typed (commandline --current-token --cut-at-cursor)
    set -l lines ($words[1] --complete $words[2..] $typed 2>/dev/null)
    switch "$lines[1]"
        case files
            __fish_complete_path $typed
        case folders
            __fish_complete_directories $typed ''
    end
    printf '%s\n' $lines[2..]
end

complete --command vemocachectl --no-files --arguments '(__vemocachectl_complete)'
