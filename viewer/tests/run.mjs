// SPDX-License-Identifier: Apache-2.0
// Runs test files: node run.mjs FILE...; ends with 77 where the packages or the browser that they need are missing.

import { spawnSync } from 'node:child_process';
import { existsSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
const browser = process.env.CHROMIUM ?? '/usr/bin/chromium';
for (const needed of [join(here, '..', 'node_modules', 'puppeteer-core'), browser])
    if (!existsSync(needed)) {
        console.log(`skipped: there is no ${needed}; scripts/test installs it`);
        process.exit(77);
    }
const files = process.argv.slice(2).map((file) => join(here, file));
process.exit(spawnSync(process.execPath, ['--test', '--test-concurrency=1', ...files], { stdio: 'inherit' }).status ?? 1);
