// controls.js - the player's face: canvas, buttons, sliders, keys.

export const ALL_TRACKS = -1; // in place of a track's number
const SPEEDS = [0.25, 0.5, 0.75, 1, 1.25, 1.5, 2];
const MOST_TICKS = 400; // key frames that are marked one by one
export const MOST_TRACKS = 32; // to choose from
const ICONS = {
    play: 'M7 4v16l13-8z',
    pause: 'M6 4h4v16H6zM14 4h4v16h-4z',
    back: 'M6 5h2v14H6zM19 5v14l-10-7z',
    next: 'M16 5h2v14h-2zM5 5l10 7-10 7z',
    loud: 'M3 9v6h4l5 5V4L7 9zM15 8.5a5 5 0 0 1 0 7l1.4 1.4a7 7 0 0 0 0-9.8zM18 5.6a9 9 0 0 1 0 12.8l1.4 1.4a11 11 0 0 0 0-15.6z',
    mute: 'M3 9v6h4l5 5V4L7 9zM15 9.4l1.4-1.4 2.6 2.6 2.6-2.6L23 9.4 20.4 12l2.6 2.6-1.4 1.4-2.6-2.6-2.6 2.6-1.4-1.4 2.6-2.6z',
    full: 'M4 9V4h5v2H6v3zM15 4h5v5h-2V6h-3zM4 15h2v3h3v2H4zM18 15h2v5h-5v-2h3z',
};
const KEYS = [
    ['Space, K', 'play, pause'], ['\u2190 \u2192', 'a second back, on'], ['Shift \u2190 \u2192', 'to the key frame before, behind'],
    [', .', 'a frame back, on'], ['Home End', 'first, last frame'], ['\u2191 \u2193', 'louder, softer'], ['M', 'mute'],
    ['< >', 'slower, faster'], ['F', 'full screen'],
];

// What goes into a <dl>.
export const keysHtml = () => KEYS.map(([keys, what]) => `<dt>${keys.replaceAll('<', '&lt;')}</dt><dd>${what}</dd>`).join('');

function icon(name) {
    return `<svg viewBox="0 0 24 24" width="20" height="20" aria-hidden="true"><path d="${ICONS[name]}"/></svg>`;
}

// "1:02.5"
export function timeText(seconds) {
    const tenths = Math.floor(seconds * 10 + 1e-6);
    const text = (tenths / 10 % 60).toFixed(1).padStart(4, '0');
    const minutes = Math.floor(tenths / 600);
    return minutes < 60 ? `${minutes}:${text}`
        : `${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, '0')}:${text}`;
}

export class Controls {
    constructor(player, root) {
        this.player = player;
        this.root = root;
        root.classList.add('vorn-player');
        root.tabIndex = 0;
        root.setAttribute('role', 'group');
        root.setAttribute('aria-label', 'Movie');
        root.innerHTML = `
            <div class="stage"><canvas width="320" height="180"></canvas><p class="message" role="alert" hidden></p></div>
            <div class="timeline"><input type="range" class="seek" min="0" max="0" step="1" value="0" aria-label="Frame">
                <svg class="keys" preserveAspectRatio="none" viewBox="0 0 1 1" aria-hidden="true"></svg></div>
            <div class="controls">
                <button type="button" class="play" title="Play (Space)">${icon('play')}</button>
                <button type="button" class="back" title="Key frame before (Shift \u2190)">${icon('back')}</button>
                <button type="button" class="next" title="Key frame behind (Shift \u2192)">${icon('next')}</button>
                <span class="time">0:00.0 / 0:00.0</span>
                <span class="sound"><button type="button" class="mute" title="Mute (M)">${icon('loud')}</button>
                    <input type="range" class="volume" min="0" max="1" step="0.01" value="1" aria-label="Volume">
                    <select class="track" aria-label="Sound track"></select></span>
                <select class="speed" aria-label="Speed">${SPEEDS.map((speed) =>
                    `<option value="${speed}"${speed === 1 ? ' selected' : ''}>${speed}\u00d7</option>`).join('')}</select>
                <button type="button" class="full" title="Full screen (F)">${icon('full')}</button>
            </div>`;
        for (const name of ['stage', 'message', 'seek', 'keys', 'play', 'back', 'next', 'time', 'sound', 'mute', 'volume',
            'track', 'speed', 'full']) this[name] = root.querySelector(`.${name}`);
        this.canvas = root.querySelector('canvas');
        this.connect();
        this.update();
    }
    connect() {
        const player = this.player;
        this.play.onclick = this.stage.onclick = () => player.toggle();
        this.back.onclick = () => player.seekKey(-1);
        this.next.onclick = () => player.seekKey(1);
        this.seek.oninput = () => player.seekFrame(this.seek.valueAsNumber);
        this.mute.onclick = () => player.setVolume(player.volume, !player.muted);
        this.volume.oninput = () => player.setVolume(this.volume.valueAsNumber, false);
        this.track.onchange = () => player.chooseTrack(Number(this.track.value));
        this.speed.onchange = () => player.setSpeed(Number(this.speed.value));
        this.full.onclick = () => this.toggleFullScreen();
        this.root.onkeydown = (event) => this.takeKey(event);
        // A button that was clicked with the pointer doesn't keep the space bar for itself.
        this.root.onclick = (event) => {
            if (event.detail > 0 && event.target.closest('button')) this.root.focus({preventScroll: true});
        };
    }
    takeKey(event) {
        if (event.ctrlKey || event.altKey || event.metaKey || event.target.tagName === 'SELECT') return;
        if (event.key === ' ' && event.target.tagName === 'BUTTON') return;
        const player = this.player;
        const actions = {
            ' ': () => player.toggle(), k: () => player.toggle(),
            ArrowLeft: () => (event.shiftKey ? player.seekKey(-1) : player.seekBy(-1)),
            ArrowRight: () => (event.shiftKey ? player.seekKey(1) : player.seekBy(1)),
            ',': () => player.step(-1), '.': () => player.step(1),
            Home: () => player.seekFrame(0), End: () => player.seekFrame(Infinity),
            ArrowUp: () => player.setVolume(player.volume + 0.1, false),
            ArrowDown: () => player.setVolume(player.volume - 0.1, false),
            m: () => player.setVolume(player.volume, !player.muted),
            '<': () => this.shiftSpeed(-1), '>': () => this.shiftSpeed(1),
            f: () => this.toggleFullScreen(),
        };
        const action = actions[event.key.length === 1 ? event.key.toLowerCase() : event.key];
        if (action === undefined) return;
        event.preventDefault();
        action();
    }
    shiftSpeed(steps) {
        const at = SPEEDS.indexOf(this.player.speed) + steps;
        if (at >= 0 && at < SPEEDS.length) this.player.setSpeed(SPEEDS[at]);
    }
    toggleFullScreen() {
        if (document.fullscreenElement === this.root) document.exitFullscreen();
        else this.root.requestFullscreen().catch((error) => this.showMessage(`No full screen: ${error.message}`));
    }

    // ---- What is shown

    showMovie(movie) {
        this.canvas.width = movie.width;
        this.canvas.height = movie.height;
        this.canvas.style.setProperty('--ratio', movie.width / movie.height);
        this.canvas.style.setProperty('--width', `${movie.width}px`);
        this.canvas.classList.toggle('alpha', movie.hasAlpha);
        this.seek.max = Math.max(movie.frames - 1, 0);
        this.seek.value = 0;
        const keys = movie.keyFrames.length <= MOST_TICKS ? movie.keyFrames : [];
        const span = Math.max(movie.frames - 1, 1);
        this.keys.innerHTML = keys.map((key) => `<path d="M${key / span} 0v1" vector-effect="non-scaling-stroke"/>`).join('');
        this.sound.hidden = movie.tracks.length === 0;
        this.track.hidden = movie.tracks.length < 2;
        this.track.innerHTML = movie.tracks.slice(0, MOST_TRACKS).map((track, t) =>
            `<option value="${t}"${track.usable ? '' : ' disabled'}>track ${track.id}</option>`).join('') +
            `<option value="${ALL_TRACKS}">all tracks</option>`;
        this.update();
    }
    showMessage(text) {
        this.message.textContent = text;
        this.message.hidden = text === '';
    }
    update() {
        const player = this.player;
        this.play.innerHTML = icon(player.playing ? 'pause' : 'play');
        this.play.setAttribute('aria-label', player.playing ? 'Pause' : 'Play');
        this.mute.innerHTML = icon(player.muted || player.volume === 0 ? 'mute' : 'loud');
        this.mute.setAttribute('aria-pressed', player.muted);
        this.volume.value = player.volume;
        this.speed.value = player.speed;
        this.track.value = player.track;
        this.updateTime();
    }
    updateTime() {
        const player = this.player;
        if (player.movie === null || !this.time) return;
        const frame = player.wantedNow();
        const text = `${timeText(player.secondsOf(frame))} / ${timeText(player.seconds)}`;
        if (text !== this.time.textContent) this.time.textContent = text;
        if (this.seek.valueAsNumber !== frame) this.seek.value = frame;
        this.root.classList.toggle('arriving', player.arriving && player.shown !== player.wanted);
    }
}
