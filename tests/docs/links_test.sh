#!/bin/sh
# links_test.sh ROOT: every relative link and picture of the documents leads to a file.
cd "$1" || exit 1
missing=0
for document in *.md docs/*.md; do
  for target in $(grep -o '](\([^):]*\))' "$document" | sed 's/](\(.*\))/\1/; s/#.*//') \
    $(grep -oE '(src|href)="[^":]*"' "$document" | sed 's/.*="\(.*\)"/\1/'); do
    if [ ! -e "$(dirname "$document")/$target" ]; then
      echo "$document: $target is missing"
      missing=1
    fi
  done
done
exit $missing
