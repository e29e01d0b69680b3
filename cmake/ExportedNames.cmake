# Writes the exported names of the version script SCRIPT to NAMES, one a line.
file(STRINGS ${SCRIPT} lines REGEX "^        [A-Za-z_][A-Za-z0-9_]*;$")
list(TRANSFORM lines REPLACE "[ ;]" "")
list(JOIN lines "\n" text)
file(WRITE ${NAMES} "${text}\n")
