#!/bin/sh
# page.sh PAGE: the headings, lists and texts of a manual page, as it is shown, a line each:
#
#     = OPTIONS                       a section
#     * Device                        a part of it
#     - --device NAME [fake]          an item
#       Output device: fake or ...    what is said of it
set -eu
mandoc -Thtml -Ofragment "$1" | tr -s ' \n' '  ' |
    sed -E 's/<h1[^>]*>/\n= /g; s/<h2[^>]*>/\n* /g; s/<dt[^>]*>/\n- /g; s/<dd[^>]*>/\n  /g; s/<\/(h1|h2|dt|dd)>/\n+/g' |
    sed -E 's/<[^>]*>//g; s/&#x2019;/'\''/g; s/&quot;|&#x201[CD];/"/g; s/&lt;/</g; s/&gt;/>/g; s/&amp;/\&/g; /^\+/d; s/ +$//'
