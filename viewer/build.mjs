// SPDX-License-Identifier: Apache-2.0
// Makes built/viewer.html, the page without a scene, out of src: one file with its script and style inside, and
// a policy that lets nothing else run and nothing be loaded. The same sources and packages give the same bytes.
//     node build.mjs [OUTPUT]

import { createHash } from 'node:crypto';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { build } from 'esbuild';

const here = dirname(fileURLToPath(import.meta.url));
const output = process.argv[2] ?? join(here, 'built', 'viewer.html');
const read = (path) => readFileSync(join(here, path), 'utf8');

function licenceOf(name, file) {
    const { version, license } = JSON.parse(read(`node_modules/${name}/package.json`));
    return `${name} ${version} (${license})\n\n${read(`node_modules/${name}/${file}`).trim()}\n`;
}
const licences = ['The viewer of this page is part of QZmath, under the Apache License 2.0.\nIt contains:\n',
    licenceOf('three', 'LICENSE'), licenceOf('meshoptimizer', 'LICENSE.md')].join('\n');

async function bundled(path, options) {
    const result = await build({
        entryPoints: [join(here, path)], absWorkingDir: here, bundle: true, minify: true, write: false,
        charset: 'ascii', legalComments: 'none', logLevel: 'warning', target: ['chrome100', 'firefox100', 'safari16'],
        ...options,
    });
    return result.outputFiles[0].text.trim();
}

const script = await bundled('src/main.js', {
    format: 'iife',
    plugins: [{
        name: 'licences',
        setup({ onResolve, onLoad }) {
            onResolve({ filter: /^licences$/ }, () => ({ path: 'licences', namespace: 'made' }));
            onLoad({ filter: /.*/, namespace: 'made' }, () => ({ contents: licences, loader: 'text' }));
        },
    }],
});
const style = await bundled('src/style.css', {});
for (const [what, text] of [['script', script], ['style', style]])
    if (text.toLowerCase().includes(`</${what}`))
        throw new Error(`the ${what} would end its own element`);

const hash = (text) => `'sha256-${createHash('sha256').update(text).digest('base64')}'`;
const policy = ["default-src 'none'", `script-src ${hash(script)} 'wasm-unsafe-eval'`, `style-src ${hash(style)}`,
    'img-src data: blob:', "base-uri 'none'", "form-action 'none'"].join('; ');
const parts = { policy, style, script };
const page = read('src/page.html').replace(/@(policy|style|script)@/g, (_, name) => parts[name]);
mkdirSync(dirname(output), { recursive: true });
writeFileSync(output, page);
console.log(`${output}: ${Buffer.byteLength(page)} bytes`);
