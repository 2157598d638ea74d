// A person at a page in headless Chromium: does what each line of standard input says and answers it with a line of JSON,
// {"error": TEXT} when it could not be done. Ends with its input. SELECTOR has no space:
//
//   window WIDTH HEIGHT        size of the browser's window from here on
//   open URL | reload          the page is there: the URL it then has
//   click SELECTOR             by mouse
//   hold SELECTOR | release    the mouse button down there: its colour; and up again
//   choose SELECTOR VALUE      of a list
//   type SELECTOR TEXT         into a field, and Enter
//   keys KEY KEY ...           one after the other: Tab, ArrowDown, Enter, Escape ...
//   download SELECTOR FILE     clicks there, and puts the file that comes of it at that path: its own name
//   expect SELECTOR TEXT       waits until the element is shown and says that
//   standing                   the newest frame shown, complaints of the page's script, whether it must be scrolled sideways,
//                              what sticks out of its box; of a control page its words, and what is not where it should be
//   fetch URL                  as a page of this origin would: status, or "refused"

import { createInterface } from 'node:readline';

const chromiumPath = '/usr/bin/chromium';
const flags = [
    '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
    '--disable-component-update', '--disable-sync',
];

// The appliance serves one connection at a time and waits 5 s for each to say something, and Chromium opens spare ones
// that never do: even a small page may take its time.
const patience = 60_000;

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

// Runs in the page. Buttons stand in one row, 15 % of the page wide, each caption under its button.
function standing() {
    const { clientWidth: across, scrollWidth } = document.documentElement;
    const box = (element) => element.getBoundingClientRect();
    const name = (element) => element.id || element.className || element.tagName;
    const sticksOut = [...document.querySelectorAll('main *')].filter((element) => {
        const { left, right, width } = box(element);
        return width > 0 && !element.closest('[role=tablist], .lines') && (left < -1 || right > across + 1);
    });
    const drawings = [...document.querySelectorAll('a svg.button')], buttons = drawings.map(box);
    const captions = [...document.querySelectorAll('td')].filter((cell) => cell.innerText !== '');
    const strays = drawings.filter((_, i) => {
        const { left, right, top, width } = buttons[i], before = i > 0 ? buttons[i - 1].right : 0;
        return Math.abs(width / across - 0.15) > 0.001 || top !== buttons[0].top || left <= before || right >= across;
    });
    const astray = captions.filter((cell, i) => {
        const { left, right, top } = box(cell), button = buttons[i];
        const aside = Math.abs((left + right) - (button.left + button.right)) / 2 / across;
        return aside > 0.01 || top < button.bottom || cell.scrollWidth > cell.clientWidth;
    });
    return {
        frame: Number(document.querySelector('#display canvas')?.dataset.frame ?? 0),
        scrolls: scrollWidth > across,
        misplaced: [...sticksOut.map(name), ...strays.map((drawing) => drawing.getAttribute('text')),
            ...astray.map((cell) => cell.innerText)],
        title: document.querySelector('p')?.innerText,
        names: drawings.map((drawing) => drawing.getAttribute('text')),
        captions: captions.map((cell) => cell.innerText),
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
    open: async (url) => void await page.goto(url),
    reload: async () => {
        await page.reload();
        return { url: page.url() };
    },
    click: (selector) => page.click(selector),
    hold: async (selector) => {
        await page.hover(selector);
        await page.mouse.down();
        return { colour: await page.$eval(selector, (element) => getComputedStyle(element).backgroundColor) };
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
