// charts.js - charts over the frames of a movie, drawn as SVG: stacked bars and curves. Under the pointer a frame's values are
// read off, a click goes to the frame, and a line shows where the player is.

const CHART_HEIGHT = 220;
const MARGIN = {left: 50, right: 10, top: 30, bottom: 36};
const TIP_GAP = 14; // pixels between the pointed frame and its values

export const swatch = (color) => `<i class="swatch" style="background: var(${color})"></i>`;
const svgNode = (name, attributes = {}) => {
    const node = document.createElementNS('http://www.w3.org/2000/svg', name);
    for (const [key, value] of Object.entries(attributes)) node.setAttribute(key, value);
    return node;
};

// Round steps between low and high, about `count` of them.
export function niceTicks(low, high, count) {
    const rough = Math.max(high - low, 1e-9) / count;
    const power = 10 ** Math.floor(Math.log10(rough));
    const step = [1, 2, 2.5, 5, 10].find((factor) => factor * power >= rough * 0.999) * power;
    const ticks = [];
    for (let k = Math.ceil(low / step - 1e-9); k * step <= high + step * 1e-9; k++) ticks.push(k * step);
    return ticks;
}

// options:
//   kind       'stack', 'curves', or 'area' for one curve that is filled down to 0
//   series     [{name, color, values, mean}], a value a frame; missing values of curves are null; mean may be left out
//   unit       of the vertical axis
//   format     number to text, for legend and tip; axis: the same for the axis
//   budget     value of a dashed line, or undefined
//   keys       1 for each key frame, marked above; or undefined
//   top        fixed upper end, or undefined
//   zero       the axis has 0 in any case
//   legend     false: no legend
//   mean       what its numbers are called, if not 'mean'; '' for none
//   total      true: the tip has the sum of the series
//   pick       called with the frame that is clicked
//   point      called with the frame under the pointer, or -1
export class Chart {
    constructor(root, options) {
        this.root = root;
        this.options = options;
        this.frames = options.series[0].values.length;
        this.head = 0;
        this.svg = svgNode('svg', {role: 'img', 'aria-label': options.label});
        this.tip = document.createElement('div');
        this.tip.className = 'tip';
        this.tip.hidden = true;
        root.replaceChildren(...(options.legend === false ? [] : [this.makeLegend()]), this.svg, this.tip);
        this.svg.onpointermove = (event) => {
            const frame = this.frameAt(event);
            options.point(frame);
            this.showTip(frame);
        };
        this.svg.onpointerleave = () => {
            options.point(-1);
            this.tip.hidden = true;
        };
        this.svg.onclick = (event) => options.pick(this.frameAt(event));
        new ResizeObserver(() => this.draw()).observe(root);
        this.draw();
    }
    // Names, colours and means.
    makeLegend() {
        const {series, format, keys, budget} = this.options;
        const legend = document.createElement('div');
        legend.className = 'legend';
        const meanText = ({values, mean}) => (this.options.mean === '' ? ''
            : ` <b>${format(mean ?? this.mean(values, [0, this.frames]) ?? 0)}</b>`);
        const parts = series.map((one) => `<span>${swatch(one.color)}${one.name}${meanText(one)}</span>`);
        parts.unshift(this.options.mean === '' ? '' : `<span>${this.options.mean ?? 'mean'}</span>`);
        if (budget !== undefined) parts.push(`<span><i class="dash"></i>${budget.name} <b>${format(budget.value)}</b></span>`);
        if (keys !== undefined) parts.push('<span><i class="mark"></i>key frame</span>');
        legend.innerHTML = parts.join('');
        return legend;
    }
    draw() {
        const width = this.root.clientWidth;
        if (width === 0 || width === this.width) return;
        this.width = width;
        this.tip.hidden = true; // it stands where it stood
        this.plotWidth = width - MARGIN.left - MARGIN.right;
        this.plotHeight = CHART_HEIGHT - MARGIN.top - MARGIN.bottom;
        this.setRange();
        const svg = this.svg;
        svg.replaceChildren();
        svg.setAttribute('viewBox', `0 0 ${width} ${CHART_HEIGHT}`);
        this.drawAxes();
        if (this.options.kind === 'stack') this.drawStack();
        else this.drawCurves();
        if (this.options.budget !== undefined) this.addLine('budget', this.y(this.options.budget.value));
        this.drawKeys();
        this.cursor = svgNode('line', {class: 'cursor', y1: MARGIN.top, y2: CHART_HEIGHT - MARGIN.bottom, visibility: 'hidden'});
        this.headLine = svgNode('line', {class: 'head', y1: MARGIN.top, y2: CHART_HEIGHT - MARGIN.bottom});
        svg.append(this.cursor, this.headLine);
        this.setHead(this.head);
    }
    setRange() {
        const {series, kind, budget, top, zero} = this.options;
        let low = Infinity;
        let high = -Infinity;
        const take = (value) => {
            low = Math.min(low, value);
            high = Math.max(high, value);
        };
        for (const column of this.columns()) {
            const values = series.map((one) => this.mean(one.values, column)).filter((value) => value !== null);
            if (kind === 'stack') take(values.reduce((sum, value) => sum + value, 0));
            else values.forEach(take);
        }
        if (budget !== undefined) take(budget.value);
        if (zero || kind !== 'curves') take(0);
        if (high === low) take(low + 1);
        const spare = (high - low) * 0.06;
        this.high = top ?? high + spare;
        this.low = low === 0 ? 0 : low - spare;
    }
    x(frame) {
        return MARGIN.left + frame * this.plotWidth / this.frames;
    }
    y(value) {
        return MARGIN.top + (this.high - value) / (this.high - this.low) * this.plotHeight;
    }
    frameAt(event) {
        const place = event.clientX - this.svg.getBoundingClientRect().left - MARGIN.left;
        return Math.min(Math.max(Math.floor(place / this.plotWidth * this.frames), 0), this.frames - 1);
    }
    addLine(name, y) {
        this.svg.append(svgNode('line', {class: name, x1: MARGIN.left, x2: this.width - MARGIN.right, y1: y, y2: y}));
    }
    addText(text, x, y, anchor) {
        const node = svgNode('text', {x, y, 'text-anchor': anchor});
        node.textContent = text;
        this.svg.append(node);
    }
    drawAxes() {
        const axis = this.options.axis ?? this.options.format;
        for (const tick of niceTicks(this.low, this.high, 4)) {
            this.addLine(tick === 0 ? 'zero' : 'grid', this.y(tick));
            this.addText(axis(tick), MARGIN.left - 6, this.y(tick) + 4, 'end');
        }
        this.addText(this.options.unit, MARGIN.left, MARGIN.top - 16, 'start');
        const each = this.columns()[0][1];
        this.addText(each === 1 ? 'frame' : `frame; each column is the mean of ${each}`, MARGIN.left + this.plotWidth / 2, CHART_HEIGHT - 3, 'middle');
        const ticks = niceTicks(0, this.frames, Math.max(2, this.plotWidth / 110)).filter(Number.isInteger);
        for (const tick of ticks) {
            if (tick < this.frames) this.addText(String(tick), this.x(tick + 0.5), CHART_HEIGHT - MARGIN.bottom + 15, 'middle');
        }
    }
    // Frames that share a column of the screen are shown as their mean.
    columns() {
        const step = Math.max(1, Math.ceil(this.frames / this.plotWidth));
        const columns = [];
        for (let from = 0; from < this.frames; from += step) columns.push([from, Math.min(from + step, this.frames)]);
        return columns;
    }
    mean(values, [from, to]) {
        let sum = 0;
        let count = 0;
        for (let i = from; i < to; i++) {
            if (values[i] === null) continue;
            sum += values[i];
            count++;
        }
        return count === 0 ? null : sum / count;
    }
    drawStack() {
        const columns = this.columns();
        const gap = this.plotWidth / columns.length >= 4 ? 1 : 0;
        const base = new Float64Array(columns.length);
        for (const {color, values} of this.options.series) {
            let path = '';
            columns.forEach((column, i) => {
                const value = this.mean(values, column);
                if (value === 0) return;
                const [left, right] = [this.x(column[0]), this.x(column[1]) - gap];
                path += `M${left.toFixed(2)} ${this.y(base[i]).toFixed(2)}V${this.y(base[i] + value).toFixed(2)}` +
                    `H${right.toFixed(2)}V${this.y(base[i]).toFixed(2)}z`;
                base[i] += value;
            });
            this.svg.append(svgNode('path', {d: path, style: `fill: var(${color})`}));
        }
    }
    drawCurves() {
        for (const {color, values} of this.options.series) {
            let path = '';
            for (const column of this.columns()) {
                const value = this.mean(values, column);
                if (value === null) continue;
                const middle = this.x((column[0] + column[1]) / 2);
                path += `${path === '' ? 'M' : 'L'}${middle.toFixed(2)} ${this.y(value).toFixed(2)}`;
            }
            if (path !== '' && this.options.kind === 'area') this.fillDown(path, color);
            this.svg.append(svgNode('path', {d: path, class: 'curve', style: `stroke: var(${color})`}));
        }
    }
    fillDown(path, color) {
        const ends = path.match(/[-\d.]+ /g);
        const zero = this.y(0).toFixed(2);
        this.svg.append(svgNode('path', {d: `${path}L${ends.at(-1)}${zero}L${ends[0]}${zero}z`, class: 'area',
            style: `fill: var(${color})`}));
    }
    drawKeys() {
        if (this.options.keys === undefined) return;
        let path = '';
        this.options.keys.forEach((key, frame) => {
            if (key) path += `M${(this.x(frame + 0.5) - 3.5).toFixed(2)} ${MARGIN.top - 9}h7l-3.5 6z`;
        });
        this.svg.append(svgNode('path', {d: path, class: 'key'}));
    }
    setHead(frame) {
        this.head = frame;
        if (!this.headLine) return;
        this.headLine.setAttribute('x1', this.x(frame + 0.5));
        this.headLine.setAttribute('x2', this.x(frame + 0.5));
    }
    // A line at `frame`; none for -1.
    setCursor(frame) {
        this.cursor.setAttribute('visibility', frame < 0 ? 'hidden' : 'visible');
        this.cursor.setAttribute('x1', this.x(frame + 0.5));
        this.cursor.setAttribute('x2', this.x(frame + 0.5));
    }
    showTip(frame) {
        const {series, format, keys, kind} = this.options;
        const told = kind === 'stack' ? series.filter(({values}) => values[frame] !== 0) : series;
        const rows = told.map(({name, color, values}) => `<tr><td>${swatch(color)}${name}</td>` +
            `<td>${values[frame] === null ? '\u2013' : format(values[frame])}</td></tr>`);
        if (kind === 'stack') rows.reverse(); // as they stand
        const sum = series.reduce((total, {values}) => total + values[frame], 0);
        if (this.options.total) rows.unshift(`<tr class="total"><td>together</td><td>${format(sum)}</td></tr>`);
        this.tip.innerHTML = `<b>frame ${frame}${keys?.[frame] ? ', key' : ''}</b><table>${rows.join('')}</table>`;
        this.tip.hidden = false;
        const right = this.x(frame + 0.5) + TIP_GAP;
        const width = this.tip.offsetWidth;
        const left = right + width <= this.width ? right : this.x(frame + 0.5) - TIP_GAP - width;
        this.tip.style.left = `${Math.min(Math.max(left, 0), this.width - width)}px`;
        const top = this.svg.getBoundingClientRect().top - this.root.getBoundingClientRect().top;
        this.tip.style.top = `${top + MARGIN.top}px`;
    }
}
