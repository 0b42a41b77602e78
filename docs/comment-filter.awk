# Doxygen input filter for the public headers, which use plain // comments.
#     awk -f docs/comment-filter.awk include/orvane/Thread.h
# - A run of whole-line // comments directly above a declaration (no blank
#   line between) becomes that declaration's /// doc comment.
# - A // comment after a member on its own line becomes a ///< comment.
# - Backslashes and <word> in comments are text, not Doxygen commands or tags.
# Lines are neither added nor removed, so Doxygen's messages point at the
# real header lines.

function isComment(s) { return s ~ /^[ \t]*\/\/([^\/]|$)/ }
function isBoundary(s) {
    return s ~ /^[ \t]*$/ || s ~ /^[ \t]*#/ || s ~ /^[ \t]*}/ || isComment(s) ||
           s ~ /^[ \t]*(public|protected|private):/
}
function text(s,    out, pos) {
    out = ""
    while ((pos = index(s, "\\")) > 0) {
        out = out substr(s, 1, pos) "\\"
        s = substr(s, pos + 1)
    }
    return escapeTags(out s)
}
# <name> reads as an HTML tag to Doxygen: escape both brackets.
function escapeTags(s,    out) {
    out = ""
    while (match(s, /<[A-Za-z_][A-Za-z0-9_.-]*>/)) {
        out = out substr(s, 1, RSTART - 1) "\\<" substr(s, RSTART + 1, RLENGTH - 2) "\\>"
        s = substr(s, RSTART + RLENGTH)
    }
    return out s
}
function trailing(s,    pos) {
    if (s !~ /^[ \t]*}/ && match(s, /[;,{][ \t]*\/\/[^\/]/)) {
        pos = index(substr(s, RSTART), "//") + RSTART - 1
        if (substr(s, 1, pos - 1) !~ /"/)
            s = substr(s, 1, pos - 1) "///<" text(substr(s, pos + 2))
    }
    return s
}

{ lines[NR] = $0 }

END {
    i = 1
    while (i <= NR) {
        if (!isComment(lines[i])) {
            print trailing(lines[i])
            i++
            continue
        }
        first = i
        while (i <= NR && isComment(lines[i])) i++
        last = i - 1
        if (i > NR || isBoundary(lines[i])) {
            for (k = first; k <= last; k++) print lines[k]
            continue
        }
        for (k = first; k <= last; k++) {
            line = lines[k]
            sub(/\/\//, "///", line)
            pos = index(line, "///")
            print substr(line, 1, pos + 2) text(substr(line, pos + 3))
        }
    }
}
