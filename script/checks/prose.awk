#!/usr/bin/awk -f
# Turns a page or a source file into plain sentences for the prose checks: the text of a page without code, links and
# tables' bars; the comments of a source file; a manual page without its macros. Each paragraph, list item, table cell
# and @tag becomes a sentence of its own, with a #line directive for the reports.

function flush() {
    while (match(text, /`[^`]*`/)) { # code between backticks is one word, of its letters
        name = substr(text, RSTART, RLENGTH)
        gsub(/[^a-zA-Z0-9]/, "", name)
        text = substr(text, 1, RSTART - 1) name substr(text, RSTART + RLENGTH)
    }
    while (match(text, /\[[^][]*\]\([^()]*\)/)) { # of a link its text
        link = substr(text, RSTART + 1, RLENGTH)
        sub(/\].*/, "", link)
        text = substr(text, 1, RSTART - 1) link substr(text, RSTART + RLENGTH)
    }
    gsub(/[*][*]|<[^<> ]*>|\\f[BIRP]/, "", text)
    gsub(/[\\_]/, "", text) # a name counts as one word
    gsub(/\.\.\./, "", text)
    gsub(/^[ \t]+|[ \t]+$/, "", text)
    if (text ~ /[a-zA-Z]/) {
        sub(/[;,:]$/, "", text)
        printf "#line %d \"%s\"\n%s%s%s\n", first, file, toupper(substr(text, 1, 1)), substr(text, 2),
               text ~ /[.?!]$/ ? "" : "."
    }
    text = ""
}
function add(part) {
    if (text == "") {
        first = FNR
        file = FILENAME
    }
    text = text " " part
}

FNR == 1 { flush(); kind = FILENAME ~ /\.md$/ ? "page" : FILENAME ~ /\.1$/ ? "manual" : "source"; inside = 0 }

kind == "page" {
    if ($0 ~ /^ *```/) {
        flush()
        inside = !inside
    } else if (!inside) {
        if ($0 ~ /^ *\|/) {
            flush()
            cells = split($0, cell, /\|/)
            for (i = 2; i < cells; ++i) {
                add(cell[i])
                flush()
            }
        } else if ($0 ~ /^ *$|^#|^ *([-*]|[0-9]+\.) /) {
            flush()
            sub(/^(#+| *([-*]|[0-9]+\.)) /, "")
            add($0)
        } else
            add($0)
    }
}

kind == "manual" {
    if ($0 ~ /^\.(nf|EX)/)
        inside = 1
    if ($0 ~ /^[.']/)
        flush()
    else if (!inside)
        add($0)
    if ($0 ~ /^\.(fi|EE)/)
        inside = 0
}

kind == "source" {
    line = $0
    if (!inside && match(line, /(^|[^:"])\/\/\/?<? |\/\*+<?( |$)/)) {
        mark = substr(line, RSTART, RLENGTH)
        inside = mark ~ /\/\*/ ? "block" : "line"
        line = substr(line, RSTART + RLENGTH)
        if (inside == "block" || mark ~ /</ || line_before != FNR - 1) # a comment after a member stands alone
            flush()
        line_before = FNR
    } else if (!inside)
        next
    ends = inside == "line" || sub(/ ?\*\/.*/, "", line)
    sub(/^ *\* ?/, "", line)
    sub(/ -+$/, "", line)
    is_item = line ~ /^@|^  +[A-Z][A-Z_]+,|^  +[^ ]+  +[^ ]/
    if (is_item)
        in_list = 1 # a parameter, a result, or a name and its meaning; and the indented lines after it
    else if (line !~ /^   /)
        in_list = 0
    if (is_item || line ~ /^ *$|^ *- |^ *[0-9]\. /)
        flush()
    sub(/^@param +[a-zA-Z_0-9]+ +|^@[a-z]+ /, "", line)
    if (in_list)
        gsub(/;( |$)/, ". X ", line) # each part is a sentence
    if (in_list || line !~ /^    |^ *[a-z_]+\(.*\);$/)
        add(line)
    if (ends) {
        if (inside == "block" || mark ~ /</)
            flush()
        inside = 0
    }
}

END { flush() }
