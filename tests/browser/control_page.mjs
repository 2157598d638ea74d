// A person at the control page, told by lines of standard input (person.mjs):
//
//   window WIDTH HEIGHT   size of the browser's window from here on
//   open URL              the page is there
//   reload                the same, by the browser's reload button: the URL it then has
//   press COMMAND         the button of that command, by mouse: its colour while it was held, the page's complaints
//   layout                where everything stands: across in fractions of the page's width, down in pixels
//   screenshot FILE.png   as it looks now

import { obey, openPage } from './person.mjs';

// The appliance serves one connection at a time and waits 5 s for each to say something, and Chromium opens spare ones
// that never do: even a small page may take its time.
const patience = 60_000;

// Runs in the page.
function layoutOf() {
    const page = document.documentElement;
    const box = (element) => {
        const { left, top, width, height } = element.getBoundingClientRect();
        const unit = page.clientWidth;
        return { centre: (left + width / 2) / unit, width: width / unit, top, bottom: top + height };
    };
    return {
        scrolls: page.scrollWidth > page.clientWidth,
        title: document.querySelector('p').innerText,
        buttons: [...document.querySelectorAll('a svg.button')].map((drawing) => ({
            name: drawing.getAttribute('text'),
            ...box(drawing),
        })),
        captions: [...document.querySelectorAll('td')].filter((cell) => cell.innerText !== '').map((cell) => ({
            text: cell.innerText,
            fits: cell.scrollWidth <= cell.clientWidth,
            ...box(cell),
        })),
    };
}

async function press(page, complaints, command) {
    const drawing = page.locator(`a[onclick*="'${command}'"] svg`);
    const { x, y, width, height } = await drawing.boundingBox();
    await page.mouse.move(x + width / 2, y + height / 2);
    await page.mouse.down();
    const background = await drawing.evaluate((element) => getComputedStyle(element).backgroundColor);
    await page.mouse.up();
    return { background, complaints };
}

const { browser, page, complaints } = await openPage(patience);

const actions = {
    window: async (width, height) => {
        await page.setViewportSize({ width: Number(width), height: Number(height) });
        return {};
    },
    open: async (url) => {
        await page.goto(url);
        return {};
    },
    reload: async () => {
        await page.reload();
        return { url: page.url() };
    },
    press: (command) => press(page, complaints, command),
    layout: () => page.evaluate(layoutOf),
    screenshot: async (path) => {
        await page.screenshot({ path });
        return {};
    },
};

await obey(browser, actions);
