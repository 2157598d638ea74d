// The back of the appliance: each connector as it looks, what is plugged, what goes wrong with it, what it sounds like,
// and a menu of what hands can do to it.
import { act, bench, find, make, mark, on, profiles, show } from './board.js';
import { openMenu } from './menu.js';
import { showInstrument } from './instruments.js';

// ---- Drawings, 80 by 44. Class "pins" takes the colour of the state.

const drawings = {
    usb: `<rect class="shell" x="16" y="8" width="48" height="28" rx="2"/><rect class="void" x="20" y="12" width="40" height="20"/>
          <rect class="tongue" x="22" y="13" width="36" height="8"/><path class="pins" d="M27 23v5M36 23v5M44 23v5M53 23v5"/>`,
    hdmi: `<path class="shell" d="M12 9h56v15l-8 10H20l-8-10z"/><path class="void" d="M16 13h48v10l-6 7H22l-6-7z"/>
           <path class="tongue" d="M21 17h38v5H21z"/><path class="pins" d="M24 24v3M29 24v3M34 24v3M39 24v3M44 24v3M49 24v3M54 24v3"/>`,
    jack: `<circle class="shell" cx="40" cy="22" r="17"/><circle class="ring" cx="40" cy="22" r="12"/><circle class="void" cx="40" cy="22" r="7"/>
           <circle class="pins" cx="40" cy="22" r="9.5"/>`,
    serial: `<path class="shell" d="M10 8h60l-5 28H15z"/><path class="void" d="M15 12h50l-4 20H19z"/>
             <path class="pins dots" d="M23 18h.01M31.5 18h.01M40 18h.01M48.5 18h.01M57 18h.01M27 26h.01M35.5 26h.01M44.5 26h.01M53 26h.01"/>`,
    lan: `<rect class="shell" x="17" y="5" width="46" height="34" rx="2"/><path class="void" d="M21 9h38v19h-7v6H28v-6h-7z"/>
          <path class="pins" d="M26 10v7M30 10v7M34 10v7M38 10v7M42 10v7M46 10v7M50 10v7M54 10v7"/>`,
    typeb: `<path class="shell" d="M24 36V14l6-8h20l6 8v22z"/><path class="void" d="M28 32V16l4-6h16l4 6v16z"/>
            <rect class="tongue" x="33" y="17" width="14" height="10"/><path class="pins" d="M36 14v2M44 14v2M36 28v2M44 28v2"/>`,
    power: `<circle class="shell" cx="40" cy="22" r="17"/><circle class="void" cx="40" cy="22" r="12"/><circle class="tongue" cx="40" cy="22" r="4"/>
            <circle class="pins" cx="40" cy="22" r="7"/>`,
};

// ---- Menus

const plugRows = (list, ...words) => list.map(({ name, description }) => [name, description, () => act(...words, name)]);
const row = (text, description, ...words) => [text, description, () => act(...words)];

const signals = ['1920x1080p60', '1920x1080p50', '1920x1080p30', '1920x1080i60', '1280x720p60', '1280x720p50', '720x576p50', '640x480p60'];

function soundRows(place) {
    if (!bench.sound[place]) return [];
    if (bench.sound[place].fault) return [row('mend', `${place} works again`, 'fault', 'sound', place, 'off')];
    return [row('busy', 'the next opens find the card busy', 'fault', 'sound', place, 'busy'),
        row('gone', 'the card vanishes without warning', 'fault', 'sound', place, 'gone'),
        row('xrun', 'its running streams fail once', 'fault', 'sound', place, 'xrun')];
}

const toneRows = (source) => [row('silent', `${source} gives no sound`, 'tone', source, 'off'),
    row('tone', `${source} plays its tone`, 'tone', source, 'on')];

function cameraRows(number, camera) {
    if (!camera) return plugRows(profiles.camera, 'camera', number, 'plug');
    return [row('unplug', camera.card, 'camera', number, 'unplug'),
        ...camera.delivery === 'resume' ? [row('stall', 'no frames any more, the device stays', 'camera', number, 'stall'),
            row('garbage', 'broken frames', 'camera', number, 'garbage'),
            row('wrong-size', 'frames of half the size', 'camera', number, 'wrong-size')] : [row('resume', 'frames as usual', 'camera', number, 'resume')]];
}

function controlRows(number, camera) {
    if (!camera) return [];
    if (camera.controls !== 'off') return [row('mend', 'controls work again', 'fault', 'camera', number, 'off')];
    return [row('query fails', 'ranges of controls', 'fault', 'camera', number, 'query'),
        row('read fails', 'values of controls', 'fault', 'camera', number, 'read'),
        row('write fails', 'settings of controls', 'fault', 'camera', number, 'write'),
        row('stuck', 'settings succeed and change nothing', 'fault', 'camera', number, 'stuck')];
}

function usbMenu(number) {
    const camera = bench.ports.camera[number - 1], sound = bench.ports.sound[number - 1];
    return [[camera ? `Camera ${camera.profile}` : 'Plug a camera', cameraRows(number, camera)],
        [sound ? `Sound device ${sound}` : 'Plug a sound device',
            sound ? [row('unplug', '', 'sound', number, 'unplug')] : plugRows(profiles.sound, 'sound', number, 'plug')],
        ['Break its controls', controlRows(number, camera)],
        ['Break its sound', [...soundRows(`usb${number}`), ...soundRows(`sound${number}`)]],
        ['Its microphone', camera ? toneRows(`microphone${number}`) : []]];
}

const hdmiMenu = (port) => [
    [bench.ports['hdmi-in'][port] ? 'Source' : '', bench.ports['hdmi-in'][port] ? [row('unplug', bench.ports['hdmi-in'][port], 'hdmi-in', port, 'off')] : []],
    [bench.ports['hdmi-in'][port] ? 'Change its signal' : 'Plug a source', signals.map((signal) => row(signal, '', 'hdmi-in', port, signal))]];

const monitorMenu = () => [
    ['Monitor', bench.ports.monitor ? [row('unplug', bench.ports.monitor, 'monitor', 'unplug')] : []],
    ['Plug a monitor', plugRows(profiles.monitor, 'monitor', 'plug')], ['Break its sound', soundRows('hdmi')]];

const powerMenu = () => [
    ['Power', [row('power-cycle', 'off and on again', 'power-cycle')]],
    ['60 Hz strap', bench.ports.strap60 ? [row('remove', '50 Hz only', 'strap60', 'off')] : [row('set', '60 Hz allowed', 'strap60', 'on')]],
    ['Processor', [47, 85, 105].map((degrees) => row(`${degrees} °C`, '', 'temperature', degrees))],
    ['Flash', bench.faults.disk !== 'off' ? [row('mend', '', 'fault', 'disk', 'off')]
        : [row('full', 'no byte finds room', 'fault', 'disk', 'full'), row('read-only', '', 'fault', 'disk', 'readonly')]],
    ['Panel chip', bench.identity.panel === 'expander' ? [row('reset', 'it loses its configuration', 'fault', 'expander', 'reset'),
        row('bounce', 'contacts bounce for 30 ms', 'fault', 'expander', 'bounce', 30), row('still', 'they do not', 'fault', 'expander', 'off')]
        : bench.identity.panel === 'keypad' ? [bench.faults.i2c['08'] ? row('mend', 'it answers again', 'fault', 'i2c', '08', 'off')
            : row('silent', 'refuses every access', 'fault', 'i2c', '08', 'nak')] : []]];

// ---- States

function cameraState(number) {
    const camera = bench.ports.camera[number - 1], sound = bench.ports.sound[number - 1];
    if (!camera) return sound ? ['plugged', sound, 'sound device'] : ['missing', 'empty', ''];
    const note = sound ? ` + ${sound}` : '';
    if (!camera.connected) return ['fault', camera.profile + note, 'host off'];
    if (camera.delivery !== 'resume') return ['fault', camera.profile + note, camera.delivery === 'stall' ? 'stalled' : camera.delivery];
    if (camera.controls !== 'off') return ['fault', camera.profile + note, `controls: ${camera.controls}`];
    return camera.streaming ? ['running', camera.profile + note, 'streaming'] : ['plugged', camera.profile + note, 'idle'];
}

function hdmiState(port) {
    const signal = bench.ports['hdmi-in'][port];
    return signal ? ['running', signal, 'signal'] : ['missing', 'empty', ''];
}

const outputs = {
    usb1: ['usb1', 'sound1'], usb2: ['usb2', 'sound2'], out: ['hdmi'], jack: ['analog'], pc: ['fpga'],
};

const connectors = [
    { id: 'usb1', label: 'USB 1', drawing: 'usb', state: () => cameraState(1), menu: () => usbMenu(1) },
    { id: 'usb2', label: 'USB 2', drawing: 'usb', state: () => cameraState(2), menu: () => usbMenu(2) },
    { id: 'hdmi0', label: 'HDMI in 1', drawing: 'hdmi', state: () => hdmiState(0), menu: () => hdmiMenu(0) },
    { id: 'hdmi1', label: 'HDMI in 2', drawing: 'hdmi', state: () => hdmiState(1), menu: () => hdmiMenu(1) },
    { id: 'out', label: 'HDMI out', drawing: 'hdmi', menu: monitorMenu,
        state: () => !bench.ports.monitor ? ['missing', 'no monitor', ''] : bench.ports.blank ? ['plugged', bench.ports.monitor, 'blanked']
            : ['running', bench.ports.monitor, 'monitor'] },
    { id: 'jack', label: 'Line', drawing: 'jack',
        state: () => bench.ports.jack ? ['running', 'plug in', 'line in and out'] : ['missing', 'empty', 'line in and out'],
        menu: () => [['Plug', [bench.ports.jack ? row('pull', '', 'jack', 'out') : row('plug', '', 'jack', 'in')]],
            ['What is played into it', toneRows('line')], ['Break its sound', soundRows('analog')]] },
    { id: 'pc', label: 'USB to PC', drawing: 'typeb',
        state: () => bench.settings.fields?.UsbStream ? ['running', 'PC', 'streams'] : ['plugged', 'PC', 'does not stream'],
        menu: () => [['The PC', [row('streams', 'as its stream chip tells', 'serial', '<USBSTREAM>'), row('stops', '', 'serial', '<USBNSTREAM>')]],
            ['Its sound', toneRows('fpga')], ['Break its sound', soundRows('fpga')]] },
    { id: 'serial', label: 'RS-232', drawing: 'serial', state: () => ['running', 'controller', 'opens the console'],
        open: () => showInstrument('serial') },
    { id: 'lan', label: 'Network', drawing: 'lan',
        state: () => bench.ports.lan ? ['running', bench.settings.fields?.IpAddress ?? 'plugged', bench.settings.fields?.Dhcp ? 'DHCP' : 'static']
            : ['missing', 'no cable', ''],
        menu: () => [['Cable', [bench.ports.lan ? row('unplug', '', 'lan', 'unplug') : row('plug', '', 'lan', 'plug')]],
            ['Board', [['control page', `port ${bench.addresses.http}`, () => open(`http://127.0.0.1:${bench.addresses.http}/`)],
                ['telnet', `port ${bench.addresses.telnet}`, () => showInstrument('telnet')]]]] },
    { id: 'power', label: 'Power', drawing: 'power',
        state: () => bench.daemon.state === 'running' ? ['running', `${bench.ports.temperature.toFixed(0)} °C`, bench.ports.strap60 ? '60 Hz strap' : '50 Hz only']
            : ['fault', 'on', bench.daemon.state],
        menu: powerMenu },
];

// ---- Drawing

const floor = -60;  // dB, left end of the meters

function makeConnector(connector) {
    const drawing = make('span', { className: 'drawing' });
    drawing.innerHTML = `<svg viewBox="0 0 80 44" aria-hidden="true">${drawings[connector.drawing]}</svg>`;
    const button = make('button', { className: 'connector', id: `port-${connector.id}`, type: 'button' }, drawing,
        make('b', {}, make('i', { className: 'lamp' }), connector.label), make('span', { className: 'what' }), make('span', { className: 'note' }));
    if (connector.menu) button.setAttribute('aria-haspopup', 'menu');
    button.onclick = connector.open ?? (() => openMenu(button, connector.label, connector.menu()));
    const cell = make('div', { className: 'place' }, button);
    if (outputs[connector.id])
        cell.append(make('div', { className: 'meter', role: 'meter', ariaLabel: `${connector.label} sound`, ariaValueMin: String(floor), ariaValueMax: '0' },
            make('i'), make('em'), make('span')));
    return cell;
}

// Of several cards at one connector, the loudest.
function soundAt(id) {
    const cards = outputs[id].map((place) => bench.sound[place]).filter(Boolean);
    return cards.sort((one, other) => other.level - one.level)[0];
}

const sourceNames = { microphone1: 'USB 1', microphone2: 'USB 2', line: 'line', fpga: 'PC', sound1: 'sound 1', sound2: 'sound 2', test: 'test' };

function drawMeter(id, place) {
    const meter = find('.meter', place), sound = soundAt(id);
    meter.classList.toggle('absent', !sound);
    const level = sound?.running ? Math.max(floor, sound.level) : floor;
    find('i', meter).style.clipPath = `inset(0 ${(100 * level / floor).toFixed(1)}% 0 0)`;
    meter.setAttribute('aria-valuenow', level.toFixed(0));
    show(find('em', meter), sound?.fault ?? (!sound ? '' : !sound.running ? 'closed' : level > floor ? `${level.toFixed(0)} dB` : 'silent'));
    show(find('span', meter), sound ? sound.tones.map((source) => sourceNames[source] ?? source).join(', ') : 'no speaker');
    mark(meter, 'state', sound?.fault ? 'fault' : sound?.running ? 'running' : 'missing');
}

export function drawConnectors() {
    const back = find('#connectors .back');
    back.append(...connectors.map(makeConnector));
    on('bench', () => connectors.forEach((connector, index) => {
        const place = back.children[index], button = find('.connector', place), [state, what, note] = connector.state();
        mark(button, 'state', state);
        mark(find('.lamp', button), 'state', state);
        show(find('.what', button), what);
        show(find('.note', button), note);
        button.title = note ? `${what}, ${note}` : what;
        if (outputs[connector.id]) drawMeter(connector.id, place);
    }));
}
