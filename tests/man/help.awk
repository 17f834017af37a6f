# What --help prints, in lines of the form that page.awk gives, too:
#
#     * Device                        a group; the arguments and what needs no group stand before
#     - --device NAME [fake]          an option, its argument, its default
#       Output device: fake or ...    what is said of it
/^Usage:/ { next }
/^[A-Z].*:$/ {
    sub(/:$/, "")
    if ($0 != "Arguments" && $0 != "Options") print "* " $0
    inside = 1
    next
}
!inside || /^$/ { next }
/^  [^ ]/ {
    entry = substr($0, 3)
    text = ""
    if (match(entry, /   *[^ ]/)) {
        text = substr(entry, RSTART + RLENGTH - 1)
        entry = substr(entry, 1, RSTART - 1)
    }
    print "- " entry
    if (text != "") print "  " text
    next
}
{ sub(/^ +/, ""); print "  " $0 }
