# Doxygen input filter for Markdown pages: gives every heading outside a
# fenced block the id that GitHub gives it ({#lower-case-words-with-dashes}),
# so that links such as [Files](#files) work in the HTML reference as they do
# on the web. Doxygen runs it as: awk -f markdown-anchors.awk <file>.
/^```/ { fenced = !fenced }
!fenced && /^#+ / {
  title = $0
  sub(/^#+ +/, "", title)
  id = tolower(title)
  gsub(/[^a-z0-9 _-]/, "", id)
  gsub(/ /, "-", id)
  print $0 " {#" id "}"
  next
}
{ print }
