// Usage: node diagrams.mjs MODULES PAGE...
//
// Parses each mermaid diagram of the pages with mermaid's own parser; names those that it refuses. MODULES is the folder
// that script/bootstrap has installed.
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { resolve } from 'node:path';
import { runInThisContext } from 'node:vm';

const [modules, ...pages] = process.argv.slice(2);
const require = createRequire(resolve(modules, 'package.json'));

// Mermaid is written for a browser: it wants a document, and leaves its name in the global scope.
const { window } = require('linkedom').parseHTML('<html><body></body></html>');
Object.assign(globalThis, { window, document: window.document });
runInThisContext(readFileSync(require.resolve('@mermaid-js/tiny'), 'utf8'));

let diagrams = 0;
for (const page of pages) {
    const text = readFileSync(page, 'utf8');
    for (const { 1: diagram, index } of text.matchAll(/^```mermaid\n(.*?)^```$/gms)) {
        ++diagrams;
        await globalThis.mermaid.parse(diagram).catch((error) => {
            console.log(`${page}:${text.slice(0, index).split('\n').length}: ${error.message}`);
            process.exitCode = 1;
        });
    }
}
if (diagrams === 0) {
    console.log('no diagram in any page: is the search still right?');
    process.exitCode = 1;
}
