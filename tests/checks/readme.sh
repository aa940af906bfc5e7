#!/bin/sh
# readme.sh ROOT: the program that the README quotes is the example that the tests run, and every link leads somewhere.
set -u
cd "$1" || exit 2
bad=0

quoted=$(sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;$d')
[ "$quoted" = "$(cat examples/decode_article.cpp)" ] || { echo "README.md does not quote examples/decode_article.cpp as it is"; bad=1; }

for page in README.md CHANGELOG.md CONTRIBUTING.md docs/*.md examples/data/README.md; do
  for link in $(grep -oE '\]\([^)#]+' "$page" | sed 's/^](//' | grep -v '^https\?:'); do
    [ -e "$(dirname "$page")/$link" ] || { echo "$page links to $link, which is not there"; bad=1; }
  done
done
exit $bad
