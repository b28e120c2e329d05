# expected_visuals: the usage text's visual lines for the default screen of
# $DISPLAY, from xdpyinfo.
expected_visuals() {
  xdpyinfo | awk -v s="$(xdpyinfo | awk '/default screen number:/ {print $4}')" '
    /^screen #/ { cur = $2; gsub("[#:]", "", cur) }
    cur == s && /^    visual id:/ { id = $3 }
    cur == s && /class:/ { cls = $2 }
    cur == s && /depth:/ && id != "" { printf "                %s : %-15s / % 2d planes\n", id, cls, $2; id = "" }'
}
