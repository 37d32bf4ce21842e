#!/usr/bin/awk -f
# Shows a page to Doxygen with each operation's name, where it stands between backticks, as a link to the operation, and
# without what is for the check of its blocks only (script/checks/snippets): the words of a fence, and comments.

BEGIN {
    while ((getline name < "src/zel_common.map") > 0)
        if (match(name, /[_a-z][_a-zA-Z0-9]*;/))
            exported[substr(name, RSTART, RLENGTH - 1)]
}

/^<!--$/ { hidden = 1 }
hidden { hidden = !/^-->$/; next }

/^ *```/ {
    verbatim = !verbatim
    if (match($0, /```[a-z]+/))
        $0 = substr($0, 1, RSTART + RLENGTH - 1)
}

{
    while (!verbatim && match($0, /`[_a-z][_a-zA-Z0-9]*`/)) {
        name = substr($0, RSTART + 1, RLENGTH - 2)
        printf "%s%s", substr($0, 1, RSTART - 1), name in exported ? "@ref " name " \"" name "\"" : "`" name "`"
        $0 = substr($0, RSTART + RLENGTH)
    }
    print
}
