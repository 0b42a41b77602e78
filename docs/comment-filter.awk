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
# Comment text outside "quotes" and `code`, where Doxygen reads commands
# and tags: a backslash stays a backslash and <word> stays text.
function text(s,    out, c, quoted, code) {
    out = ""
    while (s != "") {
        c = substr(s, 1, 1)
        if (c == "\"" && !code) quoted = !quoted
        if (c == "`" && !quoted) code = !code
        if (!quoted && !code && c == "\\") {
            out = out "\\\\"
        } else if (!quoted && !code && c == "<" && match(s, /^<[A-Za-z_][A-Za-z0-9_.-]*>/)) {
            out = out "\\<" substr(s, 2, RLENGTH - 2) "\\>"
            s = substr(s, RLENGTH + 1)
            continue
        } else {
            out = out c
        }
        s = substr(s, 2)
    }
    return out
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
