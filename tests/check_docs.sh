#!/bin/sh
# Makes the site of the documents and asks its search, in Node where there is one.
# Usage: check_docs.sh SOURCE_DIR
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$1/scripts/docs" "$folder/html" || exit 1
echo mine >"$folder/notes"
if "$1/scripts/docs" "$folder" 2>/dev/null || [ ! -f "$folder/notes" ]; then
    echo "a folder that holds something else is taken"
    exit 1
fi
if grep -rnE "(src|href)=\"(https?:)?//" "$folder/html" --include='*.html' | grep -v '<a '; then
    echo "the pages above load something from elsewhere"
    exit 1
fi
command -v node >/dev/null || exit 0
cd "$folder/html" && cat sections.js - >"$folder/ask.js" <<'EOS' && NODE_PATH=. node "$folder/ask.js"
const assert = require('assert');
const {findSections, excerpt} = require(process.cwd() + '/search.js');
const first = query => (findSections(query, SECTIONS)[0] || {at: 'nothing'}).at;
assert.equal(first('n_threads'), 'settings.html#settingsettingtxt');
assert.equal(first('  Mesh  FINE enough'), 'cad.html#6-is-the-mesh-fine-enough');
assert.equal(first('zzzz'), 'nothing');
assert.equal(first('zzzz('), 'nothing');  // no fault in a pattern
assert.equal(findSections('sections', SECTIONS.slice(0, 0)).length, 0);
assert(findSections('lanczos', SECTIONS).length > findSections('lanczos multigrid', SECTIONS).length);
assert(!findSections('anczos', SECTIONS).length);  // the inside of a word
assert(findSections('ring_modes', SECTIONS).length > 0);
assert.equal(excerpt('a'.repeat(300) + ' needle ' + 'b'.repeat(300), 'Needle').includes('needle'), true);
EOS
