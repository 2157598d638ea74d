// A person at the bench page, told by lines of standard input (person.mjs), where SELECTOR has no space:
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

import { obey, openPage } from './person.mjs';

const patience = 40_000;

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

const { browser, page, complaints } = await openPage(patience);

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

await obey(browser, actions);
