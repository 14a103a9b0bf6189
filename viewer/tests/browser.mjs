// SPDX-License-Identifier: Apache-2.0
// A browser without a screen, which draws in software, so that pictures do not depend on the machine's graphics.

import { existsSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';
import puppeteer from 'puppeteer-core';

export const program = process.env.CHROMIUM ?? '/usr/bin/chromium';
export const hasBrowser = existsSync(program);

/** What a page has said that it should not have: errors, warnings of policies, requests to the outside. */
export class Watch {
    constructor(page) {
        this.faults = [];
        page.on('console', (message) => {
            if (['error', 'warn'].includes(message.type()) && !/GPU stall due to ReadPixels/.test(message.text()))
                this.faults.push(`console: ${message.text()}`);
        });
        page.on('pageerror', (error) => this.faults.push(`error: ${error.message}`));
        page.on('request', (request) => {
            if (!/^(file|data|blob):/.test(request.url()))
                this.faults.push(`request: ${request.url()}`);
        });
    }
}

export async function startBrowser({ withWebGl = true } = {}) {
    const graphics = withWebGl ? ['--use-gl=angle', '--use-angle=swiftshader', '--enable-unsafe-swiftshader']
        : ['--disable-gpu', '--disable-software-rasterizer', '--disable-3d-apis'];
    const isRoot = process.getuid?.() === 0;
    const browser = await puppeteer.launch({
        executablePath: program, headless: true,
        args: [...graphics, '--hide-scrollbars', '--force-color-profile=srgb', '--disable-dev-shm-usage',
            ...(isRoot ? ['--no-sandbox'] : [])],
    });
    const folder = mkdtempSync(join(tmpdir(), 'viewer-'));
    let pages = 0;
    return {
        folder,
        /** Opens a page of text, or the one in a file, and waits until it shows its mesh or says why not. */
        async open(text, { width = 1100, height = 720, dark = false, file = null } = {}) {
            const path = file ?? join(folder, `page-${++pages}.html`);
            if (file === null)
                writeFileSync(path, text);
            const page = await browser.newPage();
            const watch = new Watch(page);
            await page.setViewport({ width, height });
            await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: dark ? 'dark' : 'light' },
                { name: 'prefers-reduced-motion', value: 'reduce' }]);
            await page.goto(pathToFileURL(path).href);
            await page.waitForFunction(() => document.body.dataset.state !== undefined, { timeout: 30000 });
            return { page, watch };
        },
        async close() {
            await browser.close();
            rmSync(folder, { recursive: true, force: true });
        },
    };
}
