// charts.js - charts over the frames of a movie, drawn as SVG: stacked bars and curves. The pointer reads off a frame's
// values in the legend, a click goes to the frame, and a line shows where the player is.

const CHART_HEIGHT = 190;
const MARGIN = {left: 46, right: 8, top: 10, bottom: 22};

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
//   kind       'stack' or 'curves'
//   series     [{name, color, values}], a value a frame; missing values of curves are null
//   format     number to text, for legend and axis; axis: the same for the axis alone
//   budget     value of a dashed line, or undefined
//   keys       1 for each key frame, marked above; or undefined
//   top        fixed upper end, or undefined
//   zero       the axis has 0 in any case
//   pick       called with the frame that is clicked
export class Chart {
    constructor(root, options) {
        this.root = root;
        this.options = options;
        this.frames = options.series[0].values.length;
        this.head = 0;
        this.svg = svgNode('svg', {role: 'img', 'aria-label': options.label});
        this.legend = document.createElement('div');
        this.legend.className = 'legend';
        root.replaceChildren(this.svg, this.legend);
        this.svg.onpointermove = (event) => this.readOff(this.frameAt(event));
        this.svg.onpointerleave = () => this.readOff(-1);
        this.svg.onclick = (event) => options.pick(this.frameAt(event));
        new ResizeObserver(() => this.draw()).observe(root);
        this.draw();
        this.readOff(-1);
    }
    draw() {
        const width = this.root.clientWidth;
        if (width === 0 || width === this.width) return;
        this.width = width;
        this.plotWidth = width - MARGIN.left - MARGIN.right;
        this.plotHeight = CHART_HEIGHT - MARGIN.top - MARGIN.bottom;
        this.setRange();
        const svg = this.svg;
        svg.replaceChildren();
        svg.setAttribute('viewBox', `0 0 ${width} ${CHART_HEIGHT}`);
        this.drawAxes();
        if (this.options.kind === 'stack') this.drawStack();
        else this.drawCurves();
        if (this.options.budget !== undefined) this.addLine('budget', this.y(this.options.budget));
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
        for (let i = 0; i < this.frames; i++) {
            if (kind === 'stack') take(series.reduce((sum, one) => sum + one.values[i], 0));
            else for (const one of series) if (one.values[i] !== null) take(one.values[i]);
        }
        if (budget !== undefined) take(budget);
        if (zero || kind === 'stack') take(0);
        if (high === low) take(low + 1);
        const spare = (high - low) * 0.06;
        this.high = top ?? high + spare;
        this.low = zero === 'middle' || (low !== 0 && kind !== 'stack') ? low - spare : 0;
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
        const ticks = niceTicks(0, this.frames, Math.max(2, this.plotWidth / 110)).filter(Number.isInteger);
        for (const tick of ticks) {
            const anchor = this.x(tick) > this.width - 30 ? 'end' : 'middle';
            this.addText(String(tick), this.x(tick), CHART_HEIGHT - 5, anchor);
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
            this.svg.append(svgNode('path', {d: path, class: 'curve', style: `stroke: var(${color})`}));
        }
    }
    drawKeys() {
        if (this.options.keys === undefined) return;
        let path = '';
        this.options.keys.forEach((key, frame) => {
            if (key) path += `M${(this.x(frame + 0.5) - 3).toFixed(2)} 1h6l-3 6z`;
        });
        this.svg.append(svgNode('path', {d: path, class: 'key'}));
    }
    setHead(frame) {
        this.head = frame;
        if (!this.headLine) return;
        this.headLine.setAttribute('x1', this.x(frame + 0.5));
        this.headLine.setAttribute('x2', this.x(frame + 0.5));
    }
    // Values of a frame, or names and means for -1.
    readOff(frame) {
        const {series, format, legend} = this.options;
        if (this.cursor) {
            this.cursor.setAttribute('visibility', frame < 0 ? 'hidden' : 'visible');
            this.cursor.setAttribute('x1', this.x(frame + 0.5));
            this.cursor.setAttribute('x2', this.x(frame + 0.5));
        }
        const parts = series.map(({name, color, values}) => {
            const value = frame < 0 ? this.mean(values, [0, this.frames]) : values[frame];
            return `<span><i class="swatch" style="background: var(${color})"></i>${name} ` +
                `<b>${value === null ? '\u2013' : format(value)}</b></span>`;
        });
        const place = frame < 0 ? legend ?? 'mean' : `frame ${frame}`;
        this.legend.innerHTML = parts.join('') + `<span>${place}</span>`;
    }
}
