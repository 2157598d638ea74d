// The display's picture: the newest frame as a JPEG of the width that is shown here, asked for one by one while the
// canvas is in sight, so that a slow viewer gets fewer frames and nobody looking gets none.
import { bench, find, on, show } from './board.js';

const canvas = find('#display canvas');
const context = canvas.getContext('2d', { alpha: false });

let inSight = true, running = false;
let shown = 0;          // number of the frame that is shown
let size = '';          // of the display
let rates = [];         // [time, frame number] of the last seconds

const wantedWidth = () => {
    const width = Math.ceil(canvas.clientWidth * Math.min(devicePixelRatio, 2) / 16) * 16;
    return Math.min(Math.max(width, 320), 1920);
};

async function takePicture() {
    const answer = await fetch(`/picture?width=${wantedWidth()}&after=${shown}`);
    if (answer.status !== 200) return false;
    shown = Number(answer.headers.get('X-Frame'));
    size = answer.headers.get('X-Display');
    const picture = await createImageBitmap(await answer.blob());
    if (canvas.width !== picture.width || canvas.height !== picture.height)
        [canvas.width, canvas.height] = [picture.width, picture.height];
    context.drawImage(picture, 0, 0);
    picture.close();
    canvas.dataset.frame = shown;
    return true;
}

function countRate(now) {
    if (rates.length && rates.at(-1)[1] > shown) rates = [];
    rates.push([now, shown]);
    while (rates.length > 2 && now - rates[0][0] > 3000) rates.shift();
}

function frameRate(now) {
    if (rates.length < 2 || now - rates.at(-1)[0] > 1200) return 0;
    const [from, first] = rates[0], [to, last] = rates.at(-1);
    return to > from ? (last - first) * 1000 / (to - from) : 0;
}

async function run() {
    if (running) return;
    running = true;
    while (inSight && !document.hidden) {
        try {
            if (await takePicture()) countRate(performance.now());
        } catch {
            await new Promise((resolve) => setTimeout(resolve, 1000));
        }
    }
    running = false;
}

function drawFacts() {
    const { ports, settings, daemon } = bench;
    const rate = frameRate(performance.now()), fields = settings.fields;
    const mode = fields ? ` · ${fields.OutputWidth}×${fields.OutputHeight} ${(fields.OutputRefresh100 / 100).toFixed(2)} Hz` : '';
    show(find('#display .facts'), size ? `${rate.toFixed(1)} frames/s${mode} · monitor ${ports.monitor || 'missing'}` : '');

    const reason = !ports.monitor ? 'No monitor' : ports.blank ? 'Blanked' : daemon.state !== 'running' ? 'Daemon not running'
        : !shown ? 'No picture yet' : rate === 0 ? 'Standing' : '';
    const overlay = find('#display .overlay');
    overlay.hidden = !reason;
    show(overlay, reason);
    canvas.classList.toggle('dark', Boolean(reason) && reason !== 'Standing');
    canvas.classList.toggle('blank', Boolean(ports.blank) || !ports.monitor);
}

export function drawPicture() {
    new IntersectionObserver(([entry]) => {
        inSight = entry.isIntersecting;
        run();
    }).observe(canvas);
    document.addEventListener('visibilitychange', run);
    on('bench', drawFacts);
}
