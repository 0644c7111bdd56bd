# Doxygen input filter: the public headers document themselves with plain "//" comments, which
# Doxygen would ignore. This turns them into documentation without touching the headers:
#   - the first comment block of a file (before any declaration) describes the file;
#   - a comment block directly above a line of code documents that code;
#   - "code;  // text" documents the member or enumerator on its left;
#   - a comment block followed by a blank line stays a plain comment.
# Backslashes and "@" in the text are escaped: the comments never mean Doxygen commands.
function escape(text) {
  gsub(/\\/, "\\\\\\\\", text)
  gsub(/@/, "\\\\@", text)
  return text
}
function flush(next_line,   i, doc) {
  if (n == 0) return
  doc = (next_line !~ /^[ \t]*$/)
  if (!seen_code && !file_done) {
    print "/// @file"
    file_done = 1
    doc = 1
  }
  for (i = 1; i <= n; i++) {
    if (doc) {
      match(block[i], /\/\//)
      block[i] = substr(block[i], 1, RSTART - 1) "///" escape(substr(block[i], RSTART + 2))
    }
    print block[i]
  }
  n = 0
}
# A comment line under a trailing one, indented past the code, goes on with the trailing one.
/^[ \t]*\/\// && trailing && n == 0 && match($0, /^[ \t]*/) && RLENGTH > code_indent {
  match($0, /\/\/ ?/)
  print substr($0, 1, RSTART - 1) "///< " escape(substr($0, RSTART + RLENGTH))
  next
}
/^[ \t]*\/\// { block[++n] = $0; trailing = 0; next }
{
  flush($0)
  trailing = 0
  match($0, /^[ \t]*/)
  code_indent = RLENGTH
  if ($0 !~ /^[ \t]*$/ && $0 !~ /^#/) seen_code = 1
  # Trailing comment after a declaration or enumerator: document what stands on its left.
  if (match($0, /[;,{][ \t]+\/\/ /) && substr($0, 1, RSTART) !~ /"/) {
    $0 = substr($0, 1, RSTART + RLENGTH - 4) "///< " escape(substr($0, RSTART + RLENGTH))
    trailing = 1
  }
  print
}
END { flush("") }
