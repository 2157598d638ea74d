// A menu at a connector: items that carry out verbs. Arrow keys move, Enter takes, Escape leaves, as in any menu.
import { make } from './board.js';

let menu = null, opener = null;

export function closeMenu(backToOpener = true) {
    if (!menu) return;
    menu.remove();
    menu = null;
    opener.setAttribute('aria-expanded', 'false');
    if (backToOpener) opener.focus();
}

const items = () => [...menu.querySelectorAll('[role=menuitem]')];

function move(step) {
    const all = items(), now = all.indexOf(document.activeElement);
    all[(now + step + all.length) % all.length].focus();
}

const keys = {
    ArrowDown: () => move(1),
    ArrowUp: () => move(-1),
    Home: () => items()[0].focus(),
    End: () => items().at(-1).focus(),
    Escape: () => closeMenu(),
    Tab: () => closeMenu(),
};

// A letter goes to the next item that starts with it.
function moveToLetter(letter) {
    const all = items(), now = all.indexOf(document.activeElement);
    const ordered = [...all.slice(now + 1), ...all.slice(0, now + 1)];
    ordered.find((item) => item.textContent.toLowerCase().startsWith(letter.toLowerCase()))?.focus();
}

function takeKey(event) {
    if (keys[event.key]) {
        keys[event.key]();
    } else if (event.key.length === 1 && /\w/.test(event.key)) {
        moveToLetter(event.key);
    } else {
        return;
    }
    if (event.key !== 'Tab') event.preventDefault();
}

// Below its connector where there is room, above it otherwise, within the window.
function place() {
    const at = opener.getBoundingClientRect(), { offsetWidth: width, offsetHeight: height } = menu;
    const left = Math.min(Math.max(8, at.left), innerWidth - width - 8);
    const below = at.bottom + 4, above = at.top - height - 4;
    menu.style.left = `${left}px`;
    menu.style.top = `${below + height <= innerHeight - 8 ? below : Math.max(8, above)}px`;
}

// Groups: [heading, [[text, description, action], ...]]; empty groups are left out.
export function openMenu(button, title, groups) {
    const again = opener === button && menu !== null;
    closeMenu(false);
    if (again) return;
    opener = button;
    const take = (action) => {
        closeMenu();
        action();
    };
    menu = make('div', { className: 'menu', role: 'menu', ariaLabel: title, onkeydown: takeKey });
    for (const [heading, rows] of groups.filter(([, list]) => list.length))
        menu.append(make('div', { role: 'group', ariaLabel: heading }, make('h3', {}, heading),
            ...rows.map(([text, description, action]) => make('button',
                { role: 'menuitem', tabIndex: -1, onclick: () => take(action) },
                make('b', {}, text), make('span', {}, description ?? '')))));
    document.body.append(menu);
    button.setAttribute('aria-expanded', 'true');
    place();
    items()[0]?.focus();
}

addEventListener('pointerdown', (event) => {
    if (menu && !menu.contains(event.target) && !opener.contains(event.target)) closeMenu(false);
});
addEventListener('resize', () => closeMenu(false));
addEventListener('scroll', (event) => { if (menu && !menu.contains(event.target)) place(); }, true);
