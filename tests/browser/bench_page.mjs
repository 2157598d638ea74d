// A person at the bench page, in headless Chromium: does what each line of standard input says and answers it with a
// line of JSON, {"error": TEXT} when it could not be done. Ends with its input. The lines, where SELECTOR has no space:
//
//   window WIDTH HEIGHT        size of the browser's window from here on
//   open URL                   the page is there and has heard of its board
//   click SELECTOR             by mouse
//   hold SELECTOR | release    the mouse button down there, and up again
//   choose SELECTOR VALUE      of a list
//   type SELECTOR TEXT         into a field, and Enter
//   keys KEY KEY ...           one after the other: Tab, ArrowDown, Enter, Escape ...
//   download SELECTOR FILE     clicks there, and puts the file that comes of it at that path: its own name
//   expect SELECTOR TEXT       waits until the element is shown and says that
//   standing                   the newest frame shown, complaints of the page's script, whether it must be scrolled sideways,
//                              what has the focus, and what sticks out of its box
//   fetch URL                  as a page of this origin would: status, or "refused"
//   screenshot FILE.png        the whole page, as it looks now

import { createInterface } from 'node:readline';

const chromiumPath = '/usr/bin/chromium';
const flags = [
    '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
    '--disable-component-update', '--disable-sync',
];
const patience = 40_000;

const answer = (value) => process.stdout.write(JSON.stringify(value) + '\n');

async function startBrowser() {
    const { chromium } = await import('playwright-core').catch((error) => {
        throw new Error(`playwright-core is missing, scripts/setup installs it: ${error.message}`);
    });
    return chromium.launch({ executablePath: chromiumPath, args: flags }).catch((error) => {
        throw new Error(`${chromiumPath} does not start, scripts/setup installs it: ${error.message}`);
    });
}

// Runs in the page.
function standing() {
    const page = document.documentElement;
    const sticksOut = [...document.querySelectorAll('main *')].filter((element) => {
        const { left, right, width } = element.getBoundingClientRect();
        const scrolled = element.closest('[role=tablist], .lines');
        return width > 0 && !scrolled && (left < -1 || right > page.clientWidth + 1);
    });
    return {
        frame: Number(document.querySelector('#display canvas').dataset.frame ?? 0),
        scrolls: page.scrollWidth > page.clientWidth,
        focus: document.activeElement.id || document.activeElement.textContent.trim().slice(0, 40),
        sticksOut: sticksOut.map((element) => element.id || element.className || element.tagName),
    };
}

const browser = await startBrowser().catch((error) => {
    answer({ error: error.message });
    process.exit(1);
});
const page = await browser.newPage();
page.setDefaultTimeout(patience);
const complaints = [];
page.on('pageerror', (error) => complaints.push(error.message));

const actions = {
    window: (width, height) => page.setViewportSize({ width: Number(width), height: Number(height) }),
    open: async (url) => {
        await page.goto(url);
        await page.waitForFunction(() => document.querySelector('#port-usb1 .what').textContent !== '');
    },
    click: (selector) => page.click(selector),
    hold: async (selector) => {
        await page.hover(selector);
        await page.mouse.down();
    },
    release: () => page.mouse.up(),
    choose: (selector, value) => page.selectOption(selector, value),
    type: async (selector, ...words) => {
        await page.fill(selector, words.join(' '));
        await page.press(selector, 'Enter');
    },
    keys: async (...keys) => {
        for (const key of keys) await page.keyboard.press(key);
    },
    download: async (selector, path) => {
        const [download] = await Promise.all([page.waitForEvent('download'), page.click(selector)]);
        await download.saveAs(path);
        return { name: download.suggestedFilename() };
    },
    expect: (selector, ...words) => page.locator(selector).filter({ hasText: words.join(' '), visible: true }).first().waitFor(),
    standing: async () => ({ complaints, ...await page.evaluate(standing) }),
    fetch: async (url) => ({
        status: await page.evaluate((from) => fetch(from).then((answer) => answer.status, () => 'refused'), url),
    }),
    screenshot: async (path) => void await page.screenshot({ path, fullPage: true }),
};

for await (const line of createInterface({ input: process.stdin })) {
    const [action, ...words] = line.split(' ');
    try {
        answer(await actions[action](...words) || {});
    } catch (error) {
        answer({ error: `${line}: ${error.message}` });
    }
}
await browser.close();
