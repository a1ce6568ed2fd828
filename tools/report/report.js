// report.js - fills the report's page from the data and the movie inside it.

import {keysHtml, timeText} from '../../player/controls.js';
import {Player} from '../../player/player.js';
import {open} from '../../player/vorn.js';
import {Chart, swatch} from './charts.js';

const byId = (id) => document.getElementById(id);
const data = JSON.parse(byId('report-data').textContent);
const PLANES = {y: 'Y', cr: 'Cr', cb: 'Cb', alpha: 'alpha'};
const MODES = ['skip', 'motion', 'residue', 'inter', 'intra', 'run', 'fill', 'pattern', 'raw', 'scaled'];
const MODE_TEXTS = {scaled: '16\u00d716'};
const MODE_NOTES = {skip: 'as before', motion: 'moved', residue: 'moved, corrected by sample', inter: 'moved, corrected by waves',
    intra: 'waves', run: 'runs of values', fill: 'one value', pattern: 'two values', raw: 'sample by sample', scaled: 'half the detail'};
const EXACT_DECIBELS = 80; // what a plane without any error counts as

const sum = (values) => values.reduce((total, value) => total + value, 0);
const bytesText = (bytes) => `${Math.round(bytes).toLocaleString('en')} B`;
const shortBytes = (bytes) => (Math.abs(bytes) >= 1e6 ? `${+(bytes / 1e6).toPrecision(3)}M`
    : Math.abs(bytes) >= 1000 ? `${+(bytes / 1000).toPrecision(3)}k` : String(+bytes.toPrecision(3)));
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

function addChart(root, options) {
    const point = (frame) => charts.forEach((chart) => chart.setCursor(frame));
    charts.push(new Chart(root, {pick, point, ...options}));
}

function showFacts() {
    const picture = `${data.width}\u00d7${data.height}, ${planes.includes('cr') ? 'colour' : 'grey'}` +
        (planes.includes('alpha') ? ' with alpha' : '');
    const sound = data.tracks.map((track) => `${track.sampleRate} Hz ${track.channels === 2 ? 'stereo' : 'mono'}`);
    byId('facts').textContent = [picture, `${+data.rate.toFixed(3)} frames/s`, `${frameCount} frame${frameCount === 1 ? '' : 's'}`, timeText(seconds),
        ...sound].join(' \u00b7 ');
    byId('keys').innerHTML = keysHtml();
}

function showTiles() {
    const most = sizes.reduce((at, size, i) => (size > sizes[at] ? i : at), 0);
    const tiles = [
        ['data rate', `${(total * 8 / 1000 / seconds).toFixed(0)} kbit/s`],
        ['file', bytesText(data.fileBytes)],
        [data.budget > 0 ? 'budget of a frame' : 'mean frame', bytesText(budget)],
        [`largest frame, number ${most}`, bytesText(sizes[most])],
        ['key frames', String(sum(data.key))],
    ];
    if (data.bytes.sound !== undefined) tiles.push(['sound', `${percent(sum(data.bytes.sound) / total)} of the bytes`]);
    if (data.errors !== undefined) {
        const square = sum(data.errors.y.square) / frameCount;
        tiles.unshift(['PSNR of Y', square === 0 ? 'exact' : `${decibels(square).toFixed(1)} dB`]);
    }
    byId('tiles').innerHTML = tiles.map(([name, value]) => `<div><dt>${name}</dt><dd>${value}</dd></div>`).join('');
}

function showBytes() {
    const parts = ['sound', ...planes].filter((part) => data.bytes[part] !== undefined);
    const series = parts.map((part) => ({name: PLANES[part] ?? part, color: `--c-${part}`, values: data.bytes[part]}));
    const name = data.budget > 0 ? 'budget' : 'mean frame';
    byId('bytes-note').textContent = data.budget > 0 ? 'What each frame takes, against what it was given.'
        : 'What each frame takes, against the mean: no budget was told.';
    addChart(byId('bytes'), {kind: 'stack', series, unit: 'bytes', format: bytesText, axis: shortBytes, keys: data.key, total: true,
        budget: {name, value: budget}, label: `Bytes of each frame by part; the ${name} is ${bytesText(budget)}`});
    let account = 0;
    const values = sizes.map((size) => account += size - budget);
    byId('account-note').textContent = `Bytes spent so far beyond one ${name} for each frame. It climbs where frames take more than ` +
        'their share, as key frames do, and falls where the look-ahead saves on simple ones.';
    addChart(byId('account'), {kind: 'area', series: [{name: 'spent ahead', color: '--c-account', values}], unit: 'bytes',
        format: bytesText, axis: shortBytes, mean: '', keys: data.key, label: `Running sum of bytes beyond the ${name}`});
}

const decibels = (square) => (square === 0 ? EXACT_DECIBELS : Math.min(EXACT_DECIBELS, 10 * Math.log10(255 * 255 / square)));

function showErrors() {
    if (data.errors === undefined) return;
    document.body.classList.add('with-source');
    const seriesOf = (valuesOf, meanOf) => planes.map((plane) => ({name: PLANES[plane], color: `--c-${plane}`,
        values: valuesOf(data.errors[plane]), mean: meanOf(data.errors[plane])}));
    addChart(byId('psnr'), {kind: 'curves', series: seriesOf((error) => error.square.map(decibels),
        (error) => decibels(sum(error.square) / frameCount)), mean: 'whole movie', keys: data.key, unit: 'dB',
        format: (value) => `${value.toFixed(1)} dB`, axis: (value) => String(+value.toFixed(1)),
        label: 'PSNR of each plane by frame'});
    addChart(byId('error'), {kind: 'curves', series: seriesOf((error) => error.absolute, () => undefined), keys: data.key, zero: true,
        unit: 'mean absolute difference', format: (value) => value.toFixed(2), axis: (value) => String(+value.toFixed(3)),
        label: 'Mean absolute difference of each plane by frame'});
}

function showModes() {
    const name = (mode) => MODE_TEXTS[mode] ?? mode;
    byId('modes-legend').innerHTML = MODES.map((mode) => `<span title="${MODE_NOTES[mode]}">${swatch(`--c-${mode}`)}${name(mode)} ` +
        `<small>${MODE_NOTES[mode]}</small></span>`).join('');
    byId('modes').style.setProperty('--columns', planes.length === 4 ? 2 : planes.length);
    for (const plane of planes) {
        const root = document.createElement('div');
        root.className = 'chart';
        root.id = `modes-${plane}`;
        byId('modes').append(root);
        const series = MODES.map((mode) => ({name: name(mode), color: `--c-${mode}`,
            values: data.modes[plane][mode].map((blocks) => blocks / data.blocks[plane])}));
        addChart(root, {kind: 'stack', series, top: 1, unit: `${PLANES[plane]}, share of the area`, format: percent, legend: false,
            axis: (share) => `${Math.round(share * 100)}\u202f%`, keys: data.key, label: `Block modes of plane ${PLANES[plane]} by frame`});
    }
}

function showParts() {
    const rows = [];
    data.tracks.forEach((track) => rows.push([`track ${track.id}`, '--c-sound', sum(track.bytes)]));
    for (const plane of planes) rows.push([PLANES[plane], `--c-${plane}`, sum(data.bytes[plane])]);
    const head = data.fileBytes - total;
    const bar = rows.map(([name, color, size]) =>
        `<i style="flex: ${size} 0 0; background: var(${color})" title="${name} ${percent(size / total)}"></i>`);
    const lines = rows.map(([name, color, size]) => `<tr><td>${swatch(color)}${name}</td>` +
        `<td>${size.toLocaleString('en')}</td><td>${percent(size / total)}</td><td>${(size * 8 / 1000 / seconds).toFixed(1)}</td></tr>`);
    byId('parts').innerHTML = `<div class="share" aria-hidden="true">${bar.join('')}</div><div class="scroll"><table>
        <tr><th>part</th><th>bytes</th><th>share</th><th>kbit/s</th></tr>${lines.join('')}
        <tr><td>head, index</td><td>${head.toLocaleString('en')}</td><td></td><td></td></tr></table></div>`;
}

// ---- Pictures: the source's are in the page, the movie's are decoded.

function addPicture({frame, png}) {
    const figure = document.createElement('figure');
    figure.className = planes.includes('alpha') ? 'picture alpha' : 'picture';
    const likeness = planes.map((plane) => `${PLANES[plane]} ${decibels(data.errors[plane].square[frame]).toFixed(1)} dB`);
    const key = data.key[frame] ? ', key' : '';
    figure.innerHTML = `<figcaption><button type="button">Frame ${frame}</button>${key} <span>${bytesText(sizes[frame])} \u00b7
        ${likeness.join(' \u00b7 ')}</span></figcaption><div>
        <span><img alt="source of frame ${frame}"><small>source</small></span>
        <span><canvas class="result" role="img" aria-label="frame ${frame} of the movie"></canvas><small>result</small></span>
        <span><canvas class="difference" role="img" aria-label="difference"></canvas><small>difference</small></span></div>`;
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
    showModes();
    showParts();
    byId('frames').ontoggle = () => fillTable();
    showPictures().catch((error) => byId('problem').textContent = `The pictures can't be shown: ${error.message}`);
}
document.body.classList.add('ready');
