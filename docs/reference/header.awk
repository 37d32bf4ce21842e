#!/usr/bin/awk -f
# Shows a public header to Doxygen as the headers are meant: the comment at the top is the page's own text, and a
# heading ("/* Title ---- */"), with the comment that follows it, begins a group that lasts until the next heading.
# Lines stay where they are, so that a warning names the right one.

BEGIN { heading = "^/\\* (.*[^-]) -+ \\*/$" }

{ line[NR] = $0 }

END {
    if (line[1] == "/*")
        line[1] = "/** @file"
    for (i = 2; i <= NR; ++i) {
        if (line[i] ~ heading) {
            title = line[i]
            sub(/^\/\* /, "", title)
            sub(/ -+ \*\/$/, "", title)
            close_group = open ? "/** @} */ " : ""
            open = 1
            if (line[i + 2] == "/*") {
                line[i] = close_group
                line[i += 2] = "/** @name " title
                while (line[i] != " */")
                    ++i
                line[i] = " */ /** @{ */"
            } else {
                line[i] = close_group "/** @name " title " */ /** @{ */"
            }
        } else if (open && line[i] ~ /^#pragma GCC visibility pop/) {
            line[i] = "/** @} */"
            open = 0
        }
    }
    for (i = 1; i <= NR; ++i)
        print line[i]
}
