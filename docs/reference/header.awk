#!/usr/bin/awk -f
# Shows a public header to Doxygen as the headers are meant: the header is a module, whose text is the comment at the
# top; a heading ("/* Title ---- */"), with the comment that follows it, begins a part of it that lasts until the next
# heading. A list of names with their meaning ("   ZEL_ERR_NONE   done") becomes a table. An operation's name in
# a comment becomes a link. Lines stay about where they are, so that a warning can be followed.

BEGIN {
    heading = "^/\\* (.*[^-]) -+ \\*/$"
    GONE = "\001"
    while ((getline name < "src/zel_common.map") > 0)
        if (match(name, /[_a-z][_a-zA-Z0-9]*;/))
            exported[substr(name, RSTART, RLENGTH - 1)]
}

{ line[NR] = $0 }

# One row for a name in front of its meaning, which may go on below; names alone belong to the next one that has one.
function tabulate(first, last,   i, row, names) {
    for (i = first; i <= last; ++i) {
        if (line[i] ~ /^ \*   [A-Z][A-Z_]+(,|  +[^ ].*)$/) {
            if (!row && !names)
                line[i - 1] = line[i - 1] "\n *\n * | code | meaning |\n * |---|---|"
            if (line[i] ~ /,$/) {
                names = names substr(line[i], 6) " "
                line[i] = GONE
                continue
            }
            sub(/^ \*   /, "", line[i])
            sub(/  +/, " | ", line[i])
            line[i] = " * | " names line[i] " |"
            names = ""
            row = i
        } else if (row && line[i] ~ /^ \*     /) {
            sub(/^ \* +/, "", line[i])
            sub(/\|$/, line[i] " |", line[row])
            line[i] = GONE
        } else if (row) {
            row = 0
            line[i] = " *\n" line[i]
        }
    }
}

# In a comment, the name of an operation becomes a link to it.
function with_links(text,   out, name) {
    if (text !~ /^ ?\*|\/\*\*/)
        return text
    while (match(text, /[a-z_][a-z_0-9A-Z]*/)) {
        name = substr(text, RSTART, RLENGTH)
        out = out substr(text, 1, RSTART - 1) (name in exported ? "#" : "") name
        text = substr(text, RSTART + RLENGTH)
    }
    return out text
}

END {
    name = FILENAME
    sub(/.*\//, "", name)
    id = name
    sub(/\.h$/, "", id)
    if (line[1] == "/*") {
        for (last = 1; line[last] != " */"; ++last)
            ;
        tabulate(2, last)
        line[1] = "/** @defgroup " id " " name
        line[last] = " * @{ */"
        open = 1
    }
    for (i = last + 1; i <= NR; ++i) {
        if (line[i] ~ heading) {
            title = line[i]
            sub(/^\/\* /, "", title)
            sub(/ -+ \*\/$/, "", title)
            part = tolower(title)
            gsub(/[^a-z]+/, "_", part)
            part = id "_" part
            ++parts
            close_part = parts > 1 ? "/** @} */ " : ""
            if (line[i + 2] == "/*") {
                line[i] = close_part
                line[i += 2] = "/** @defgroup " part " " title
                while (line[i] != " */")
                    ++i
                line[i] = " * @{ */"
            } else {
                line[i] = close_part "/** @defgroup " part " " title "\n * @{ */"
            }
        } else if (open && line[i] ~ /^#pragma GCC visibility pop/) {
            line[i] = (parts ? "/** @} */ " : "") "/** @} */"
            open = 0
        }
    }
    for (i = 1; i <= NR; ++i)
        if (line[i] != GONE)
            print with_links(line[i])
}
