# From the help text of one command to man(7); see `commands`. Variables: `words` are the command's, "" for the program itself;
# `part` is "options", "footer", or "" for both. A footer of `parent` or `before`, the help of the command above it and of the one
# before, is not repeated.

function escaped(text) {
  gsub(/\\/, "\\e", text)
  gsub(/-/, "\\-", text)
  return text ~ /^[.\047]/ ? "\\&" text : text
}

# "N:UINT in [1 - 9]" is "N", "VRF TEXT REQUIRED" is "VRF".
function plain(name) {
  gsub(/, +/, ", ", name)
  sub(/:[A-Z]+ in \[[^]]*\]/, "", name)
  if (name !~ /^-/ && !sub(/ TEXT( \.\.\.)?( REQUIRED)?$/, "", name)) sub(/ TEXT:/, " ", name)
  if (sub(/ Excludes: /, " (not with ", name)) name = name ")"
  return name
}

function is_header(line) { return tolower(line) ~ /^(positionals|options|subcommands):$/ }

# What follows the lists of arguments.
function footer_of(help,    lines, count, at, is_after_usage, footer) {
  count = split(help, lines, "\n")
  for (at = 1; at <= count; at++) {
    if (footer != "" || (is_after_usage && lines[at] ~ /^[^ ]/ && !is_header(lines[at]))) footer = footer lines[at] "\n"
    if (lines[at] ~ /^Usage:/) is_after_usage = 1
  }
  sub(/\n+$/, "", footer)
  return footer
}

# Sections of the program's own footer are sections of the page.
function begin_paragraph(line,    title) {
  if (words != "" || line !~ /^(Examples|Exit status|Environment):/) { print ".PP"; return line }
  title = line
  sub(/:.*/, "", title)
  printf ".SH %s\n", toupper(title)
  sub(/^[^:]*: */, "", line)
  return toupper(substr(line, 1, 1)) substr(line, 2)
}

# Indented lines stay as they are.
function print_footer(footer,    lines, count, at, line, is_verbatim, is_first) {
  count = split(footer, lines, "\n")
  is_first = 1
  for (at = 1; at <= count; at++) {
    line = lines[at]
    if (line != "" && is_first) line = begin_paragraph(line)
    if (is_verbatim != (line ~ /^ /)) { is_verbatim = !is_verbatim; print is_verbatim ? ".EX" : ".EE" }
    if (line != "") print escaped(line)
    is_first = lines[at] == ""
  }
  if (is_verbatim) print ".EE"
}

function end_argument() {
  if (name != "" && section != "subcommands:" && name !~ /^-h/ && part != "footer") {
    printf ".TP\n\\fB%s\\fR\n%s\n", escaped(plain(name)), escaped(about)
  }
  name = about = ""
}

function begin_argument(line) {
  end_argument()
  name = about = substr(line, 3)
  # A blank after a comma, or two before a dash, do not end the name.
  if (match(name, /   *[^ -]/) && substr(name, RSTART - 1, 1) != ",") name = substr(name, 1, RSTART - 1)
  about = substr(about, length(name) + 1)
  sub(/^ +/, "", about)
}

{ help = help $0 "\n" }

/^Usage:/ {
  usage = $0
  sub(/^Usage: /, "", usage)
  sub(/\(0x\)/, "...", usage)
  if (words != "") printf ".SS %s\n%s.\n.PP\n.B %s\n", escaped("mplsvpn " words), escaped(description), escaped(usage)
  next
}

usage == "" { description = description (description == "" ? "" : " ") $0; next }
is_header($0) { end_argument(); section = tolower($0); next }
section != "" && /^  [^ ]/ { begin_argument($0); next }
section != "" && /^   / { sub(/^ +/, ""); about = about (about == "" ? "" : " ") $0; next }
/^[^ ]/ { end_argument(); section = "" }

END {
  end_argument()
  footer = footer_of(help)
  is_new = footer != footer_of(ENVIRON["parent"]) && footer != footer_of(ENVIRON["before"])
  if (part != "options" && is_new) print_footer(footer)
}
