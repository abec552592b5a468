# Makes the manual pages of section 3 from vctk.h:
#   awk -f functions.awk -v folder=OUT -v version=0.1.0 vctk.h
# A comment and the declarations right below it become one page, named for the first function; the
# other names refer to it. The comment at the top becomes vctk.3. In a comment, "word  text" is the
# entry of a list, an indented line beside no such entry is shown as it stands, and the first
# sentence is the summary. Any POSIX awk does.

function escaped(text) {
  gsub(/\\/, "\\e", text)
  gsub(/-/, "\\-", text)
  if (text ~ /^['.]/) text = "\\&" text
  return text
}

function heading(page, name, section) {
  print ".\\\" Made from vctk.h." > page
  printf ".TH %s %s \"\" \"vctk %s\" \"Signing toolkit\"\n", name, section, version > page
}

# A comment's lines without the marks: one text, lines parted by newlines.
function add_line(text, line) {
  sub(/^[ \t]*\/?\*+ ?/, "", line)
  sub(/[ \t]*\*\/[ \t]*$/, "", line)
  return text == "" ? line : text "\n" line
}

# The first sentence, to stand behind the names.
function summary_of(text,    end) {
  gsub(/\n */, " ", text)
  end = match(text, /[.:;]( |$)/)
  if (end > 0) text = substr(text, 1, end - 1)
  return escaped(text)
}

# Entries, indented lines and plain text, as roff.
function body(page, text,    lines, count, i, line, state, word) {
  count = split(text, lines, "\n")
  state = "text"
  for (i = 1; i <= count; ++i) {
    line = lines[i]
    if (line == "") {
      continue
    } else if (line ~ /^[A-Za-z]+  +[^ ]/) {
      if (state == "shown") print ".fi" > page
      word = line
      sub(/ .*/, "", word)
      sub(/^[A-Za-z]+ +/, "", line)
      printf ".TP\n.I %s\n%s\n", escaped(word), escaped(line) > page
      state = "entry"
    } else if (line ~ /^  / && state == "entry") {
      sub(/^ +/, "", line)
      print escaped(line) > page
    } else if (line ~ /^  /) {
      if (state != "shown") print ".PP\n.nf" > page
      print escaped(line) > page
      state = "shown"
    } else {
      if (state == "shown") print ".fi\n.PP" > page
      if (state == "entry") print ".PP" > page
      print escaped(line) > page
      state = "text"
    }
  }
  if (state == "shown") print ".fi" > page
}

# Whether the section's own text is about an argument of the functions.
function concerns(text, declarations,    lines, count, i, word) {
  count = split(text, lines, "\n")
  for (i = 1; i <= count; ++i) {
    word = lines[i]
    if (word !~ /^[A-Za-z]+  +/) continue
    sub(/ .*/, "", word)
    if (index(declarations, word)) return 1
  }
  return 0
}

function finish_page(    page, names, count, i, all) {
  if (declared == "") return
  count = split(functions, names, " ")
  page = folder "/" names[1] ".3"
  heading(page, names[1], 3)
  all = names[1]
  for (i = 2; i <= count; ++i) {
    all = all ", " names[i]
    printf ".so man3/%s.3\n", names[1] > (folder "/" names[i] ".3")
  }
  summary = summary_of(comment)
  printf ".SH NAME\n%s \\- %s\n.SH SYNOPSIS\n.nf\n.B #include <vctk.h>\n.PP\n", all, summary > page
  printf "%s.fi\n.SH DESCRIPTION\n", declared > page
  body(page, comment)
  if (section_text != "" && concerns(section_text, declared)) {
    print ".SH ARGUMENTS AND RESULT" > page
    body(page, section_text)
  }
  print ".SH SEE ALSO\n.BR vctk (3)" > page
  overview = overview ".TP\n.B " all "\n" summary "\n"
  declared = functions = ""
}

function finish_overview(    page) {
  page = folder "/vctk.3"
  heading(page, "vctk", 3)
  printf ".SH NAME\nvctk \\- %s\n", introduction > page
  print ".SH SYNOPSIS\n.nf\n.B #include <vctk.h>\n.PP" > page
  print ".B cc host.c \\-lVELClientTK64\n.fi\n.SH DESCRIPTION" > page
  body(page, rules)
  printf ".SH FUNCTIONS\n%s.SH ERRORS\n%s", overview, errors > page
  print ".SH SEE ALSO\n.BR vctk (1)" > page
}

# Up to the first declaration, comments belong to the file.
/^\/\* *Client/ { in_head = 1 }
in_head {
  line = add_line("", $0)
  if (introduction == "") introduction = summary_of(tolower(substr(line, 1, 1)) substr(line, 2))
  sub(/^  /, "", line)
  if (seen_rules && line != "/") rules = rules "\n" line
  if (line ~ /^Rules for all/) seen_rules = 1
  if (/\*\//) in_head = 0
  next
}

/^  VCTK_.* = [0-9]+,?$/ {
  errors = errors sprintf(".TP\n.B %s\n%s\n", $3 + 0, $1)
  next
}

/^\/\* ---/ {
  finish_page()
  section_text = comment = ""
  in_section = !/\*\//
  next
}
in_section {
  section_text = add_line(section_text, $0)
  if (/\*\//) in_section = 0
  next
}

/^\/\*/ {
  finish_page()
  comment = add_line("", $0)
  in_comment = !/\*\//
  next
}
in_comment {
  comment = add_line(comment, $0)
  if (/\*\//) in_comment = 0
  next
}

/^VCTK_API/ { in_declaration = 1 }
in_declaration {
  line = $0
  sub(/^VCTK_API /, "", line)
  declared = declared "\\fB" escaped(line) "\\fR\n"
  if (match(line, /VCTK_[A-Za-z0-9]+\(/)) {
    functions = functions substr(line, RSTART, RLENGTH - 1) " "
  }
  if (/;$/) in_declaration = 0
  next
}

/^$/ { finish_page() }

END {
  finish_page()
  finish_overview()
}
