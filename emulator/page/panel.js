// The front panel in the form that this board has: keys with the LEDs beside them, and the board's indicators.
import { act, bench, find, make, mark, on, show } from './board.js';

const keyBits = [1, 2, 4, 8, 16, 32, 64];
const keyNames = {
    layouts: ['S1', 'S2', 'PiP', 'SS · TB', 'BS', 'Swap', 'Mute'],
    inputs: ['1', '2', '3', '4', 'Black', '–', 'Mute'],
};
const indicators = [['status', 'Status'], ['camera1', 'No USB 1'], ['camera2', 'No USB 2'],
    ['hdmi0', 'No HDMI 1'], ['hdmi0-top', 'No HDMI 1 (top)'], ['hdmi1', 'No HDMI 2']];

const place = find('#panel .keys');
let drawnForm = '';
let order = Promise.resolve();  // presses reach the board one after the other

const inOrder = (...words) => (order = order.then(() => act(...words)));

// ---- What a press and its end do, by form

let held = 0;  // of the expander's buttons

const forms = {
    keypad: {
        note: 'keypad controller',
        press: (index) => inOrder('key', keyBits[index]),
        release: () => {},
    },
    expander: {
        note: 'I/O expander · Shift holds a button down',
        press: (index) => inOrder('buttons', held |= keyBits[index]),
        release: (index) => inOrder('buttons', held &= ~keyBits[index]),
    },
    inputs: {
        note: 'four lines, button and LED each',
        press: (index) => inOrder('gpio-button', index + 1, 'press'),
        release: (index) => inOrder('gpio-button', index + 1, 'release'),
    },
};

function makeKey(form, index, name) {
    let down = false, latched = false;
    const key = make('button', { className: 'key', type: 'button' }, make('i', { className: 'led' }), make('b', {}, name),
        make('kbd', {}, String(index + 1)));
    key.setAttribute('aria-pressed', 'false');
    const press = () => {
        if (down) return;
        down = true;
        key.setAttribute('aria-pressed', 'true');
        forms[form].press(index);
    };
    const release = (keep) => {
        latched = down && keep && form !== 'keypad' && !latched;
        if (!down || latched) return;
        down = false;
        key.setAttribute('aria-pressed', 'false');
        forms[form].release(index);
    };
    key.addEventListener('pointerdown', (event) => {
        if (event.button !== 0) return;
        key.setPointerCapture(event.pointerId);
        press();
    });
    for (const end of ['pointerup', 'pointercancel']) key.addEventListener(end, (event) => release(event.shiftKey));
    key.addEventListener('contextmenu', (event) => event.preventDefault());
    key.addEventListener('keydown', (event) => {
        if (event.key !== ' ' && event.key !== 'Enter') return;
        event.preventDefault();
        press();
    });
    key.addEventListener('keyup', (event) => (event.key === ' ' || event.key === 'Enter') && release(event.shiftKey));
    key.addEventListener('blur', () => latched || release(false));
    Object.assign(key, { press, release });
    return key;
}

// Digits work the keys while the panel has the focus: several can be held.
function takeDigit(event) {
    const key = event.code.startsWith('Digit') ? place.querySelectorAll('.key')[Number(event.code.slice(5)) - 1] : null;
    if (!key || event.repeat) return;
    event.preventDefault();
    event.type === 'keydown' ? key.press() : key.release(event.shiftKey);
}

// ---- Drawing

function formOf({ identity }) {
    const inputs = identity['device-id'] >= 1 && identity['device-id'] <= 3;
    if (inputs && identity.kernel === 'old' && !identity['top-board'] && identity.panel === 'none') return 'inputs';
    return identity.panel;
}

function drawKeys(form, names) {
    const key = form + names.join();
    if (drawnForm === key) return;
    drawnForm = key;
    held = 0;
    place.replaceChildren(...(forms[form] ? names.map((name, index) => makeKey(form, index, name)) : []));
    if (!forms[form]) place.append(make('p', { className: 'none' }, 'This board has no front panel.'));
}

function drawLeds(form, leds) {
    place.querySelectorAll('.key').forEach((key, index) => {
        const lit = form === 'inputs' ? leds[`input${index + 1}`] === 1 : Boolean((leds.panel?.leds ?? 0) & keyBits[index]);
        mark(find('.led', key), 'lit', String(lit));
    });
}

function drawIndicators(leds) {
    const row = find('#panel .indicators');
    if (!row.children.length)
        row.append(...indicators.map(([name, text]) => make('span', { id: `led-${name}` }, make('i', { className: 'led' }), text)));
    for (const [name] of indicators) {
        const lamp = find(`#led-${name}`);
        mark(find('.led', lamp), 'lit', String(leds[name] === 1));
        lamp.classList.toggle('unused', leds[name] === null);
    }
}

export function drawPanel() {
    place.addEventListener('keydown', takeDigit);
    place.addEventListener('keyup', takeDigit);
    on('bench', () => {
        const form = formOf(bench), inputs = bench.identity['device-id'] !== 0;
        const names = inputs ? keyNames.inputs : keyNames.layouts;
        drawKeys(form, form === 'inputs' ? names.slice(0, 4) : names);
        drawLeds(form, bench.leds);
        drawIndicators(bench.leds);
        const { panel } = bench.leds;
        const detail = panel?.form === 'keypad' ? ` · ${panel.frames} LED frames` : panel && !panel.configured ? ' · not configured' : '';
        show(find('#panel .facts'), (forms[form]?.note ?? 'none') + detail);
    });
}
