// Instruments behind tabs: consoles, the log, the trace of bus traffic, and the page's own actions as verb lines.
import { act, find, make, on, show } from './board.js';

const place = find('#instruments');
const tabs = find('[role=tablist]', place);
const linesKept = 2000;

// ---- Tabs

const instruments = new Map();  // by name: { tab, sheet }

export function showInstrument(name, focus = true) {
    for (const [other, { tab, sheet }] of instruments) {
        const chosen = other === name;
        tab.setAttribute('aria-selected', String(chosen));
        tab.tabIndex = chosen ? 0 : -1;
        sheet.hidden = !chosen;
    }
    const { tab, sheet } = instruments.get(name);
    if (focus) (find('input[type=text]', sheet) ?? tab).focus();
    if (focus) place.scrollIntoView({ block: 'nearest' });
    sheet.dispatchEvent(new Event('shown'));
}

function addInstrument(name, title, ...children) {
    const tab = make('button', { role: 'tab', id: `tab-${name}`, type: 'button', onclick: () => showInstrument(name, false) }, title);
    const sheet = make('div', { role: 'tabpanel', id: `sheet-${name}`, hidden: true }, ...children);
    tab.setAttribute('aria-controls', sheet.id);
    sheet.setAttribute('aria-labelledby', tab.id);
    instruments.set(name, { tab, sheet });
    tabs.append(tab);
    place.append(sheet);
    return sheet;
}

tabs.addEventListener('keydown', (event) => {
    const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
    if (!step) return;
    const names = [...instruments.keys()], now = names.findIndex((name) => instruments.get(name).tab === document.activeElement);
    const next = names[(now + step + names.length) % names.length];
    showInstrument(next, false);
    instruments.get(next).tab.focus();
});

// ---- Sheets of lines that stay at their end until somebody scrolls up. Drawn once a frame, and only while shown.

function makeLines(draw, passes) {
    const list = make('div', { className: 'lines', tabIndex: 0, role: 'log' });
    let kept = [], waiting = [], planned = false;
    const atEnd = () => list.scrollHeight - list.scrollTop - list.clientHeight < 30;
    const flush = () => {
        planned = false;
        if (!list.offsetParent) return;
        const follow = atEnd();
        list.append(...waiting.filter(passes).map(draw));
        waiting = [];
        while (list.children.length > linesKept) list.firstChild.remove();
        if (follow) list.scrollTop = list.scrollHeight;
    };
    const plan = () => {
        if (!planned) requestAnimationFrame(flush);
        planned = true;
    };
    return {
        list,
        add(...lines) {
            kept.push(...lines);
            waiting.push(...lines);
            if (kept.length > linesKept) kept = kept.slice(-linesKept);
            if (waiting.length > linesKept) waiting = waiting.slice(-linesKept);
            plan();
        },
        redraw() {
            list.replaceChildren();
            waiting = [...kept];
            plan();
        },
        clear() {
            kept = [];
            this.redraw();
        },
        plan,
    };
}

// Takes pieces of text, gives whole lines.
function lineReader(take) {
    let rest = '';
    const read = (piece) => {
        const lines = (rest + piece).split('\n');
        rest = lines.pop();
        if (lines.length) take(lines);
    };
    read.reset = () => (rest = '');
    return read;
}

const filterBox = (label, changed) => make('input', { type: 'search', placeholder: label, ariaLabel: label, oninput: changed });

// ---- Consoles

function addConsole(name, title, placeholder, send, echoes = true) {
    const log = make('pre', { className: 'lines', tabIndex: 0, role: 'log' });
    const input = make('input', { type: 'text', placeholder, ariaLabel: placeholder, spellcheck: false, autocomplete: 'off', autocapitalize: 'off' });
    const past = [];
    let at = 0;
    const write = (text, kind) => {
        log.append(make('span', { className: kind }, text));
        while (log.children.length > linesKept) log.firstChild.remove();
        log.scrollTop = log.scrollHeight;
    };
    input.addEventListener('keydown', (event) => {
        const step = { ArrowUp: -1, ArrowDown: 1 }[event.key];
        if (!step || !past.length) return;
        event.preventDefault();
        at = Math.min(Math.max(at + step, 0), past.length);
        input.value = past[at] ?? '';
    });
    const form = make('form', { className: 'line' }, make('label', {}, '›'), input, make('button', { type: 'submit' }, 'Send'));
    form.addEventListener('submit', async (event) => {
        event.preventDefault();
        const text = input.value.trim();
        if (!text) return;
        past.push(text);
        at = past.length;
        input.value = '';
        if (echoes) write(text + '\n', 'typed');
        const { good, text: answer } = await send(text);
        if (!good) write(answer + '\n', 'wrong');
        else if (answer) write(answer.replaceAll('\r', '').replace(/\n?$/, '\n'), 'answer');
    });
    const sheet = addInstrument(name, title, log, form);
    sheet.addEventListener('shown', () => (log.scrollTop = log.scrollHeight));
    return write;
}

function addConsoles() {
    addConsole('serial', 'RS-232', 'A command, for example <GET>', (text) => act('serial', text));
    addConsole('telnet', 'Telnet', 'A command, for example $SS$', (text) => act('telnet', text));
    const write = addConsole('console', 'Console', 'A command, for example <PPTR>',
        async (text) => ({ ...await act('console', text), text: '' }));
    on('console', (piece) => write(piece.replaceAll('\r', ''), 'answer'));
    on('line', (open) => open === null && find('#sheet-console .lines').replaceChildren());
}

// ---- The log

const priorities = ['emergency', 'alert', 'critical', 'error', 'warning', 'notice', 'info', 'debug'];

function addLog() {
    const most = make('select', { ariaLabel: 'Priority' }, ...[['7', 'everything'], ['5', 'notice and worse'], ['4', 'warning and worse'], ['3', 'error and worse']]
        .map(([value, text]) => make('option', { value }, text)));
    const filter = filterBox('Filter the log', () => lines.redraw());
    const passes = ({ priority, text }) => priority <= Number(most.value) && text.toLowerCase().includes(filter.value.toLowerCase());
    const draw = ({ priority, text }) => make('p', { className: `priority${priority}` }, make('b', {}, priorities[priority]), make('span', {}, text));
    const lines = makeLines(draw, passes);
    most.onchange = () => lines.redraw();
    let last = 6;
    const read = lineReader((texts) => lines.add(...texts.map((text) => {
        const [, digit, message] = /^([0-7]) (.*)$/.exec(text) ?? [null, last, text];  // a message may have several lines
        return { priority: last = Number(digit), text: message };
    })));
    const sheet = addInstrument('log', 'Log', make('div', { className: 'filters' }, most, filter), lines.list);
    sheet.addEventListener('shown', lines.plan);
    on('journal', read);
    on('line', (open) => {
        if (open !== null) return;
        read.reset();
        lines.clear();
    });
}

// ---- The trace

const kinds = ['i2c', 'gpio', 'led', 'panel', 'ioctl', 'exec', 'file', 'sound', 'serial', 'plug', 'fault', 'watchdog', 'framebuffer', 'daemon', 'reset'];

function addTrace() {
    const hidden = new Set(['watchdog']);
    let paused = false;
    const filter = filterBox('Filter the trace', () => lines.redraw());
    const passes = ({ what, text }) => !hidden.has(what) && text.toLowerCase().includes(filter.value.toLowerCase());
    const draw = ({ time, what, text }) => make('p', { className: `kind-${what}` },
        make('time', {}, (time / 1e6).toFixed(6)), make('b', {}, what), make('span', {}, text));
    const lines = makeLines(draw, passes);
    const chips = kinds.map((kind) => {
        const chip = make('button', { type: 'button', className: 'chip', textContent: kind });
        chip.setAttribute('aria-pressed', String(!hidden.has(kind)));
        chip.onclick = () => {
            hidden.has(kind) ? hidden.delete(kind) : hidden.add(kind);
            chip.setAttribute('aria-pressed', String(!hidden.has(kind)));
            lines.redraw();
        };
        return chip;
    });
    const pause = make('button', { type: 'button', className: 'chip' }, 'Pause');
    pause.onclick = () => {
        paused = !paused;
        pause.setAttribute('aria-pressed', String(paused));
        show(pause, paused ? 'Paused' : 'Pause');
    };
    pause.setAttribute('aria-pressed', 'false');
    const read = lineReader((texts) => paused || lines.add(...texts.map((text) => {
        const { t: time, what, ...rest } = JSON.parse(text);
        const shown = (value) => typeof value === 'string' ? value : Array.isArray(value) ? value.join(' ') : JSON.stringify(value);
        const fields = Object.entries(rest).map(([name, value]) => `${name} ${shown(value)}`);
        return { time, what, text: fields.join('  ') };
    })));
    const sheet = addInstrument('trace', 'Trace', make('div', { className: 'filters' }, filter, pause, ...chips), lines.list);
    sheet.addEventListener('shown', lines.plan);
    on('trace', read);
    on('line', (open) => {
        if (open !== null) return;
        read.reset();
        lines.clear();
    });
}

// ---- What this page did, as lines for `tessel-emulator ctl`; any other verb can be typed

const quoted = (word) => /^[\w.,:/+-]+$/.test(word) ? word : `'${word.replaceAll("'", "'\\''")}'`;
const verbLine = (words) => words.map(quoted).join(' ');
const splitWords = (line) => [...line.matchAll(/'([^']*)'|"([^"]*)"|(\S+)/g)].map(([, one, two, plain]) => one ?? two ?? plain);

function addActions() {
    const write = addConsole('verbs', 'Verbs', 'Any verb, for example: i2c', (text) => act(...splitWords(text)), false);
    find('#sheet-verbs').prepend(make('div', { className: 'filters' },
        make('p', {}, 'Every action of this page is a verb of tessel-emulator ctl.')));
    on('action', ({ words, good }) => write(verbLine(words) + '\n', good ? 'typed' : 'typed wrong'));
}

export function drawInstruments() {
    addConsoles();
    addLog();
    addTrace();
    addActions();
    showInstrument('log', false);
}
