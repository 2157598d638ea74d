// A person at a page in headless Chromium: does what each line of standard input says, a word of `actions` with its
// arguments, and answers it with a line of JSON, {"error": TEXT} when it could not be done. Ends with its input.

import { createInterface } from 'node:readline';

const chromiumPath = '/usr/bin/chromium';
const flags = [
    '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
    '--disable-component-update', '--disable-sync',
];

const answer = (value) => process.stdout.write(JSON.stringify(value) + '\n');

async function startBrowser() {
    const { chromium } = await import('playwright-core').catch((error) => {
        throw new Error(`playwright-core is missing, scripts/setup installs it: ${error.message}`);
    });
    // Each start has a fresh profile, which goes with the browser.
    return chromium.launch({ executablePath: chromiumPath, args: flags }).catch((error) => {
        throw new Error(`${chromiumPath} does not start, scripts/setup installs it: ${error.message}`);
    });
}

// An empty page whose actions may take `patience` milliseconds each, and the complaints of its scripts.
export async function openPage(patience) {
    const browser = await startBrowser().catch((error) => {
        answer({ error: error.message });
        process.exit(1);
    });
    const page = await browser.newPage();
    page.setDefaultTimeout(patience);
    const complaints = [];
    page.on('pageerror', (error) => complaints.push(error.message));
    return { browser, page, complaints };
}

export async function obey(browser, actions) {
    for await (const line of createInterface({ input: process.stdin })) {
        const [action, ...words] = line.split(' ');
        try {
            answer(await actions[action](...words) || {});
        } catch (error) {
            answer({ error: `${line}: ${error.message}` });
        }
    }
    await browser.close();
}
