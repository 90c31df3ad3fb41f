// The time axis: the events of one alert side by side, and how far they are apart.
//
// Its zero is the last message that the gateway sent, or the event that a person has chosen.

import { $, show_text } from "./dom.js";
import { all_events, draw_soon, offset, sources } from "./timeline.js";

// From the top. Everything else shares the last one.
const lanes = ["gateway", "TV", "document", "picture", "other"];
const left = 74; // pixels for the lanes' names
const lane_height = 14;
const before_zero = 0.06; // of the axis's width

let chosen = null;
let last_message = null;
let is_drawing = false;

export function start_axis() {
    $("span").addEventListener("change", draw_axis_soon);
    new ResizeObserver(draw_axis_soon).observe($("axis"));
}

// Again the same one: back to the last message.
export function choose_zero(event) {
    chosen = chosen === event ? null : event;
    draw_soon();
    draw_axis_soon();
}

const is_message = (event) => event.source === "gateway" && event.text.startsWith("sends");

export function notice_event(event) {
    if (is_message(event)) {
        last_message = event;
    }
    draw_axis_soon();
}

export const zero_of = () => chosen || last_message || all_events()[0] || { time: 0 };

export function draw_axis_soon() {
    if (!is_drawing) {
        is_drawing = true;
        requestAnimationFrame(draw);
    }
}

function draw() {
    is_drawing = false;
    const canvas = $("axis");
    const ratio = devicePixelRatio;
    const width = canvas.clientWidth;
    const height = canvas.clientHeight;
    canvas.width = width * ratio;
    canvas.height = height * ratio;
    const context = canvas.getContext("2d");
    context.scale(ratio, ratio);
    context.font = "11px sans-serif";
    context.textBaseline = "middle";
    const span = Number($("span").value);
    const zero = zero_of();
    const start = zero.time - span * before_zero;
    const place = (time) => left + (time - start) / span * (width - left);
    draw_grid(context, span, width, height, (seconds) => place(zero.time + seconds));
    draw_events(context, events_between(start, start + span), place);
    show_text($("measure"), measure(zero));
}

function draw_grid(context, span, width, height, place) {
    const step = [0.1, 0.25, 0.5, 1, 5, 10, 60].find((size) => span / size <= 24) || 60;
    for (let number = -1; number * step <= span; number++) {
        const x = Math.round(place(number * step)) + 0.5;
        if (x < left) {
            continue;
        }
        context.strokeStyle = number === 0 ? "#0b4f8a" : "#e2e2dd";
        context.beginPath();
        context.moveTo(x, 0);
        context.lineTo(x, height);
        context.stroke();
        context.fillStyle = "#595959";
        context.fillText(number === 0 ? "0" : signed(number * step), x + 3, height - 7);
    }
    context.fillStyle = "#1c1c1c";
    lanes.forEach((name, at) => context.fillText(name, 4, lane_center(at)));
}

const signed = (seconds) => `${seconds < 0 ? "−" : "+"}${Number(Math.abs(seconds).toFixed(2))} s`;

const lane_center = (at) => 8 + at * lane_height;

function events_between(start, end) {
    const events = all_events();
    let low = 0, high = events.length;
    while (low < high) {
        const middle = (low + high) >> 1;
        if (events[middle].time < start) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    let last = low;
    while (last < events.length && events[last].time <= end) {
        last++;
    }
    return events.slice(low, last);
}

function draw_events(context, events, place) {
    const marked = lanes.map(() => -1);
    const written = lanes.map(() => 0);
    for (const event of events) {
        const lane = lanes.includes(event.source) ? lanes.indexOf(event.source) : lanes.length - 1;
        const x = place(event.time);
        if (Math.round(x) === marked[lane]) {
            continue; // thousands may share a pixel
        }
        marked[lane] = Math.round(x);
        context.fillStyle = sources[event.source] || "#000";
        context.fillRect(x - 1, lane_center(lane) - 5, 3, 10);
        if (lane < lanes.length - 1 && x >= written[lane]) {
            const text = event.text.slice(0, 40);
            context.fillText(text, x + 5, lane_center(lane));
            written[lane] = x + 5 + context.measureText(text).width;
        }
    }
}

// In words: when the television woke, and when the document and the picture were there.
function measure(zero) {
    const events = events_between(zero.time, Infinity);
    const next = events.findIndex((event) => event !== zero && is_message(event));
    const own = next < 0 ? events : events.slice(0, next);
    const seen = [["waking", "TV", "waking"], ["awake", "TV", "on"], ["document", "document", ""], ["picture", "picture", ""]];
    const parts = seen.flatMap(([words, source, text]) => {
        const found = own.find((event) => event.source === source && event.text.startsWith(text) && event !== zero);
        return found ? [`${words} ${offset(found.time - zero.time)}`] : [];
    });
    return zero.text ? [`0: ${zero.source} ${zero.text.slice(0, 60)}`, ...parts].join(" · ") : "";
}
