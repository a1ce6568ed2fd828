// report.js - fills the report's page from the data and the movie inside it.

import {KEYS, timeText} from '../../player/controls.js';
import {Player} from '../../player/player.js';
import {open} from '../../player/vorn.js';
import {Chart} from './charts.js';

const byId = (id) => document.getElementById(id);
const data = JSON.parse(byId('report-data').textContent);
const PLANES = {y: 'Y', cr: 'Cr', cb: 'Cb', alpha: 'alpha'};
const MODES = ['skip', 'motion', 'residue', 'inter', 'intra', 'run', 'fill', 'pattern', 'raw', 'scaled'];
const MODE_TEXTS = {scaled: '16\u00d716'};
const EXACT_DECIBELS = 60; // what a plane without any error counts as

const sum = (values) => values.reduce((total, value) => total + value, 0);
const bytesText = (bytes) => `${Math.round(bytes).toLocaleString('en')} B`;
const shortBytes = (bytes) => (Math.abs(bytes) >= 1e6 ? `${+(bytes / 1e6).toPrecision(3)}M`
    : Math.abs(bytes) >= 1000 ? `${+(bytes / 1000).toPrecision(3)}k` : String(Math.round(bytes)));
const percent = (part) => `${(part * 100).toFixed(part < 0.0995 ? 1 : 0)}\u202f%`;

function movieBytes() {
    const text = byId('report-movie').textContent;
    const bytes = new Uint8Array(data.fileBytes);
    const PIECE = 1 << 20; // characters, a multiple of 4
    for (let from = 0, at = 0; from < text.length; from += PIECE) {
        const piece = atob(text.slice(from, from + PIECE));
        for (let i = 0; i < piece.length; i++) bytes[at++] = piece.charCodeAt(i);
    }
    return bytes;
}

const charts = [];
const player = new Player(byId('player'));
const bytes = movieBytes();
player.onFrame = (frame) => charts.forEach((chart) => chart.setHead(frame));
const pick = (frame) => player.seekFrame(frame);
const frameCount = data.key.length;
const seconds = frameCount / data.rate;
const planes = Object.keys(PLANES).filter((plane) => data.bytes[plane] !== undefined);
const sizes = Array.from({length: frameCount}, (unused, i) => sum(Object.values(data.bytes).map((part) => part[i])));
const total = sum(sizes);
const budget = data.budget > 0 ? data.budget : total / Math.max(frameCount, 1);

function addChart(id, options) {
    charts.push(new Chart(byId(id), {pick, ...options}));
}

function showFacts() {
    const picture = `${data.width}\u00d7${data.height}, ${planes.includes('cr') ? 'colour' : 'grey'}` +
        (planes.includes('alpha') ? ' with alpha' : '');
    const sound = data.tracks.map((track) => `${track.sampleRate} Hz ${track.channels === 2 ? 'stereo' : 'mono'}`);
    byId('facts').textContent = [picture, `${+data.rate.toFixed(3)} frames/s`, `${frameCount} frames`, timeText(seconds),
        ...sound].join(' \u00b7 ');
    byId('keys').innerHTML = KEYS.map(([keys, what]) => `<dt>${keys.replaceAll('<', '&lt;')}</dt><dd>${what}</dd>`).join('');
}

function showTiles() {
    const tiles = [
        [bytesText(data.fileBytes), 'file'],
        [`${(total * 8 / 1000 / seconds).toFixed(0)} kbit/s`, 'sound and picture'],
        [bytesText(budget), data.budget > 0 ? 'budget of a frame' : 'mean frame'],
        [bytesText(sizes.reduce((most, size) => Math.max(most, size), 0)), 'largest frame'],
        [String(sum(data.key)), 'key frames'],
    ];
    if (data.bytes.sound !== undefined) tiles.push([percent(sum(data.bytes.sound) / total), 'of the bytes are sound']);
    if (data.errors !== undefined) {
        const square = sum(data.errors.y.square) / frameCount;
        tiles.push([square === 0 ? 'exact' : `${decibels(square).toFixed(1)} dB`, 'PSNR of Y']);
    }
    byId('tiles').innerHTML = tiles.map(([value, name]) => `<div class="tile"><b>${value}</b><span>${name}</span></div>`).join('');
}

function showBytes() {
    const parts = ['sound', ...planes].filter((part) => data.bytes[part] !== undefined);
    const series = parts.map((part) => ({name: PLANES[part] ?? part, color: `--c-${part}`, values: data.bytes[part]}));
    const what = data.budget > 0 ? 'the budget' : 'the mean frame';
    byId('bytes-note').textContent = `The dashed line is ${what}, ${bytesText(budget)}; triangles are key frames.`;
    addChart('bytes', {kind: 'stack', series, format: bytesText, axis: shortBytes, budget, keys: data.key,
        label: `Bytes of each frame by part; ${what} is ${bytesText(budget)}`});
    let account = 0;
    const values = sizes.map((size) => account += size - budget);
    byId('account-note').textContent = 'Bytes spent up to each frame beyond that many budgets: the look-ahead lends from ' +
        'simple frames to hard ones.';
    addChart('account', {kind: 'curves', series: [{name: 'ahead', color: '--c-account', values}], format: bytesText,
        axis: shortBytes, zero: 'middle', keys: data.key, label: 'Running sum of bytes beyond the budget'});
}

const decibels = (square) => (square === 0 ? EXACT_DECIBELS : Math.min(EXACT_DECIBELS, 10 * Math.log10(255 * 255 / square)));

function showErrors() {
    if (data.errors === undefined) return;
    document.body.classList.add('with-source');
    const seriesOf = (valuesOf) => planes.map((plane) =>
        ({name: PLANES[plane], color: `--c-${plane}`, values: valuesOf(data.errors[plane])}));
    addChart('psnr', {kind: 'curves', series: seriesOf((error) => error.square.map(decibels)), keys: data.key,
        format: (value) => `${value.toFixed(1)} dB`, axis: (value) => String(+value.toFixed(1)),
        label: 'PSNR of each plane by frame'});
    addChart('error', {kind: 'curves', series: seriesOf((error) => error.absolute), keys: data.key, zero: true,
        format: (value) => value.toFixed(2), axis: (value) => String(+value.toFixed(3)),
        label: 'Mean absolute difference of each plane by frame'});
}

function showModes(plane) {
    const shares = data.modes[plane];
    const series = MODES.filter((mode) => shares[mode] !== undefined).map((mode) =>
        ({name: MODE_TEXTS[mode] ?? mode, color: `--c-${mode}`, values: shares[mode].map((blocks) => blocks / data.blocks[plane])}));
    const at = charts.findIndex((chart) => chart.root.id === 'modes');
    if (at >= 0) charts.splice(at, 1);
    addChart('modes', {kind: 'stack', series, top: 1, format: percent, axis: (share) => `${Math.round(share * 100)}\u202f%`, keys: data.key,
        label: `Block modes of plane ${PLANES[plane]} by frame`});
    charts.at(-1).setHead(Math.max(player.shown, 0));
    for (const button of byId('plane-choice').children) button.setAttribute('aria-pressed', button.value === plane);
}

function showModeChoice() {
    byId('plane-choice').innerHTML = planes.map((plane) =>
        `<button type="button" value="${plane}">${PLANES[plane]}</button>`).join('');
    for (const button of byId('plane-choice').children) button.onclick = () => showModes(button.value);
    showModes('y');
}

function showParts() {
    const rows = [];
    data.tracks.forEach((track) => rows.push([`track ${track.id}`, '--c-sound', sum(track.bytes)]));
    for (const plane of planes) rows.push([PLANES[plane], `--c-${plane}`, sum(data.bytes[plane])]);
    const head = data.fileBytes - total;
    const bar = rows.map(([name, color, size]) =>
        `<i style="flex: ${size} 0 0; background: var(${color})" title="${name} ${percent(size / total)}"></i>`);
    const lines = rows.map(([name, color, size]) => `<tr><td><i class="swatch" style="background: var(${color})"></i>${name}</td>` +
        `<td>${bytesText(size)}</td><td>${percent(size / total)}</td><td>${(size * 8 / 1000 / seconds).toFixed(1)}</td></tr>`);
    byId('parts').innerHTML = `<div class="share" aria-hidden="true">${bar.join('')}</div><div class="scroll"><table>
        <tr><th>part</th><th>bytes</th><th>share</th><th>kbit/s</th></tr>${lines.join('')}
        <tr><td>head and index</td><td>${bytesText(head)}</td><td></td><td></td></tr></table></div>`;
}

// ---- Pictures: the source's are in the page, the movie's are decoded.

function addPicture({frame, png}) {
    const figure = document.createElement('figure');
    figure.className = planes.includes('alpha') ? 'picture alpha' : 'picture';
    const likeness = planes.map((plane) => `${PLANES[plane]} ${decibels(data.errors[plane].square[frame]).toFixed(1)} dB`);
    figure.innerHTML = `<div><span><img alt="source of frame ${frame}"><small>source</small></span>
        <span><canvas class="result" role="img" aria-label="frame ${frame} of the movie"></canvas><small>result</small></span>
        <span><canvas class="difference" role="img" aria-label="difference"></canvas><small>difference</small></span></div>
        <figcaption><button type="button">frame ${frame}</button>${data.key[frame] ? ', key' : ''} \u00b7 ${bytesText(sizes[frame])} \u00b7
        ${likeness.join(', ')}</figcaption>`;
    figure.querySelector('button').onclick = () => {
        pick(frame);
        byId('player').scrollIntoView({block: 'nearest'});
    };
    figure.querySelector('img').src = `data:image/png;base64,${png}`;
    byId('pictures').append(figure);
    return figure;
}

function drawDifference(figure, pixels) {
    const {width, height} = data;
    const canvas = figure.querySelector('.difference');
    canvas.width = width;
    canvas.height = height;
    const picture = canvas.getContext('2d', {willReadFrequently: true});
    picture.drawImage(figure.querySelector('img'), 0, 0);
    const image = picture.getImageData(0, 0, width, height);
    for (let i = 0; i < image.data.length; i++) {
        image.data[i] = i % 4 === 3 ? 255 : 128 + (pixels[i] - image.data[i]) * 4;
    }
    picture.putImageData(image, 0, 0);
}

async function showPictures() {
    if (data.errors === undefined) return;
    const figures = data.pictures.map((entry) => [addPicture(entry), entry.frame]);
    const movie = open(bytes); // of its own: the player's stands elsewhere
    for (const [figure, frame] of figures) {
        while (movie.last !== frame) {
            movie.decodeFrame(movie.nextToDecode(frame));
            await new Promise((go) => setTimeout(go, 0));
        }
        const canvas = figure.querySelector('.result');
        canvas.width = data.width;
        canvas.height = data.height;
        const picture = canvas.getContext('2d');
        const image = picture.createImageData(data.width, data.height);
        movie.toRgba(movie.decodeFrame(frame), image.data);
        picture.putImageData(image, 0, 0);
        await figure.querySelector('img').decode();
        drawDifference(figure, image.data);
    }
}

function fillTable() {
    const parts = Object.keys(data.bytes);
    const errors = data.errors === undefined ? [] : planes;
    const heads = ['frame', 'bytes', ...parts.map((part) => PLANES[part] ?? part), ...errors.map((plane) => `${PLANES[plane]} dB`)];
    const rows = sizes.map((size, i) => {
        const cells = [i, size, ...parts.map((part) => data.bytes[part][i]),
            ...errors.map((plane) => decibels(data.errors[plane].square[i]).toFixed(2))];
        return `<tr${data.key[i] ? ' class="key"' : ''}><td>${cells.join('</td><td>')}</td></tr>`;
    });
    byId('frames').querySelector('.scroll').innerHTML =
        `<table><thead><tr><th>${heads.join('</th><th>')}</th></tr></thead><tbody>${rows.join('')}</tbody></table>`;
}

showFacts();
player.load(bytes);
if (frameCount > 0) {
    showTiles();
    showBytes();
    showErrors();
    showModeChoice();
    showParts();
    byId('frames').ontoggle = () => fillTable();
    showPictures().catch((error) => byId('problem').textContent = `The pictures can't be shown: ${error.message}`);
}
document.body.classList.add('ready');
