# Turns the output of "vctk COMMAND --help" into a part of vctk.1:
#   vctk sign --help | awk -v command="vctk sign" -f commands.awk
# An entry is an indented name, at least two spaces or a new line, and its text.

function escaped(text) {
  gsub(/\\/, "\\e", text)
  gsub(/-/, "\\-", text)
  if (text ~ /^['.]/) text = "\\&" text
  return text
}

function entry(line,    name, text) {
  name = line
  sub(/^ +/, "", name)
  text = ""
  if (match(name, /  +/)) {
    text = substr(name, RSTART + RLENGTH)
    name = substr(name, 1, RSTART - 1)
  }
  sub(/ REQUIRED$/, "", name)
  sub(/ Excludes:.*/, "", name)
  sub(/,/, ", ", name)
  printf ".TP\n.B %s\n", escaped(name)
  if (text != "") print escaped(text)
}

NR == 1 { description = $0; next }
/^Usage: / {
  sub(/^Usage: /, "")
  sub(/ \[OPTIONS\]/, " [options]")
  printf ".SS %s\n%s.\n", escaped(command), escaped(description)
  printf ".PP\n.B %s\n", escaped($0)
  next
}
/^(Options|Positionals):$/ { inside = 1; next }
/^[^ ]/ || /^$/ { inside = 0; next }
!inside { next }
/^  +(-h,--help|--version) / { next }
/^   +[^ ]/ { sub(/^ +/, ""); print escaped($0); next }
{ entry($0) }
