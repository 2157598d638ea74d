// The page's line to the board: what happens there arrives here, and every action of the page is a verb.

const followers = { bench: [], trace: [], journal: [], console: [], action: [], line: [] };

export const bench = {};        // newest answer of the verb `bench`
export const profiles = { camera: [], sound: [], monitor: [] };

export const on = (event, follower) => followers[event].push(follower);
const tell = (event, ...what) => followers[event].forEach((follower) => follower(...what));

// Carries out a verb: { good, text }. Never throws.
export async function act(...words) {
    const action = { words: words.map(String) };
    try {
        const answer = await fetch('/verb', {
            method: 'POST',
            headers: { 'Content-Type': 'application/json' },
            body: JSON.stringify(action.words),
        });
        if (!answer.ok) throw new Error(await answer.text());
        Object.assign(action, await answer.json());
    } catch (error) {
        Object.assign(action, { good: false, text: `The bench does not answer: ${error.message}` });
    }
    tell('action', action);
    return action;
}

// ---- Events, while somebody looks

let source = null;

function listen() {
    source = new EventSource('/events');
    source.onopen = () => {
        tell('line', null);  // what was recorded comes again
        tell('line', true);
    };
    source.onerror = () => tell('line', false);
    source.addEventListener('bench', (event) => {
        const changed = JSON.parse(event.data);
        Object.assign(bench, changed);
        tell('bench', bench, changed);
    });
    for (const feed of ['trace', 'journal', 'console'])
        source.addEventListener(feed, (event) => tell(feed, JSON.parse(event.data)));
}

function followVisibility() {
    if (document.hidden) {
        source?.close();
        source = null;
    } else if (!source) {
        listen();
    }
}

export async function start() {
    Object.assign(profiles, await fetch('/profiles').then((answer) => answer.json()).catch(() => ({})));
    document.addEventListener('visibilitychange', followVisibility);
    followVisibility();
}

// ---- What every file uses

export const find = (selector, within = document) => within.querySelector(selector);

export function make(tag, properties = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(properties))
        name in element ? (element[name] = value) : element.setAttribute(name, value);
    element.append(...children);
    return element;
}

// Writes only what is new: a page that shows the same costs nothing.
export function show(element, text) {
    if (element.textContent !== text) element.textContent = text;
}

export function mark(element, name, value) {
    if (element.dataset[name] !== value) element.dataset[name] = value;
}

export function duration(seconds) {
    const whole = Math.floor(seconds), pad = (number) => String(number).padStart(2, '0');
    const hours = Math.floor(whole / 3600), minutes = Math.floor(whole / 60) % 60;
    return (hours ? `${hours}:${pad(minutes)}` : minutes) + ':' + pad(whole % 60);
}
