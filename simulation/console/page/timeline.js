// The timeline's list: every event, filtered and searched. Only the rows in sight exist.

import { $, element, is_pressed, press, show_text } from "./dom.js";
import { choose_zero, notice_event, zero_of } from "./axis.js";

export const sources = {
    gateway: "#0a7c86", TV: "#9b2fae", document: "#1e7d32", picture: "#0b4f8a", service: "#6b6b6b",
    tool: "#a86800", hand: "#1c1c1c", station: "#1c1c1c", watchdog: "#8c8c8c", stderr: "#8a4b00",
    problem: "#a61b1b",
};

const row_height = 19;
const spare_rows = 10;

const events = []; // all of them
let shown = []; // those that the filter lets through
let hidden_sources = new Set();
let search = "";
let paused_at = null; // how many events there were; null: not paused
let selected = -1; // an index of shown
let is_following = true;
let is_drawing = false;

export const all_events = () => events;

export function start_timeline() {
    for (const [name, color] of Object.entries(sources)) {
        const button = element("button", { type: "button", textContent: name });
        button.dataset.source = name;
        button.style.setProperty("--color", color);
        press(button, true);
        button.addEventListener("click", () => {
            press(button, !is_pressed(button));
            hidden_sources = new Set([...$("sources").children]
                .filter((other) => !is_pressed(other)).map((other) => other.dataset.source));
            filter();
        });
        $("sources").append(button);
    }
    $("search").addEventListener("input", () => {
        search = $("search").value.toLowerCase();
        filter();
    });
    $("pause").addEventListener("click", () => {
        paused_at = paused_at === null ? events.length : null;
        press($("pause"), paused_at !== null);
        filter();
    });
    $("save").addEventListener("click", save);
    const log = $("log");
    log.addEventListener("scroll", () => {
        is_following = log.scrollTop + log.clientHeight >= log.scrollHeight - row_height;
        draw_soon();
    });
    log.addEventListener("click", (click) => {
        const row = click.target.closest(".event");
        if (row) {
            select(Number(row.dataset.at));
            choose_zero(shown[selected]);
        }
    });
    log.addEventListener("keydown", use_key);
    new ResizeObserver(draw_soon).observe(log);
}

export function add_event(event) {
    events.push(event);
    if (paused_at === null && is_wanted(event)) {
        shown.push(event);
    }
    draw_soon();
    notice_event(event);
}

const is_wanted = (event) => !hidden_sources.has(event.source) &&
    (search === "" || event.text.toLowerCase().includes(search) || event.source.toLowerCase().includes(search));

function filter() {
    const chosen = shown[selected];
    shown = events.slice(0, paused_at ?? events.length).filter(is_wanted);
    selected = chosen ? shown.indexOf(chosen) : -1;
    draw_soon();
}

function save() {
    const lines = events.map((event) => JSON.stringify(event) + "\n");
    const address = URL.createObjectURL(new Blob(lines, { type: "application/jsonl" }));
    element("a", { href: address, download: "timeline.jsonl" }).click();
    setTimeout(() => URL.revokeObjectURL(address), 1000);
}

function use_key(event) {
    const page = Math.floor($("log").clientHeight / row_height);
    const steps = { ArrowUp: -1, ArrowDown: 1, PageUp: -page, PageDown: page, Home: -shown.length, End: shown.length };
    if (event.key in steps && shown.length) {
        const from = selected < 0 ? shown.length - 1 : selected;
        select(Math.min(Math.max(from + steps[event.key], 0), shown.length - 1));
    } else if (event.key === "Enter" && shown[selected]) {
        choose_zero(shown[selected]);
        draw_soon();
    } else {
        return;
    }
    event.preventDefault();
}

function select(at) {
    selected = at;
    const log = $("log");
    const top = at * row_height;
    if (top < log.scrollTop) {
        log.scrollTop = top;
    } else if (top + row_height > log.scrollTop + log.clientHeight) {
        log.scrollTop = top + row_height - log.clientHeight;
    }
    draw_soon();
}

export function draw_soon() {
    if (!is_drawing) {
        is_drawing = true;
        requestAnimationFrame(draw);
    }
}

function draw() {
    is_drawing = false;
    const log = $("log");
    $("rows").style.height = `${shown.length * row_height}px`;
    if (is_following) {
        log.scrollTop = log.scrollHeight;
    }
    const first = Math.max(Math.floor(log.scrollTop / row_height) - spare_rows, 0);
    const last = Math.min(first + Math.ceil(log.clientHeight / row_height) + 2 * spare_rows, shown.length);
    const zero = zero_of();
    const rows = [];
    for (let at = first; at < last; at++) {
        rows.push(make_row(at, zero));
    }
    $("rows").replaceChildren(...rows);
    if (selected >= first && selected < last) {
        log.setAttribute("aria-activedescendant", "selected-event");
    } else {
        log.removeAttribute("aria-activedescendant");
    }
    const unseen = paused_at === null ? 0 : events.length - paused_at;
    show_text($("count"), `${shown.length} of ${events.length} lines${unseen ? `, ${unseen} since the pause` : ""}`);
}

function make_row(at, zero) {
    const event = shown[at];
    const row = element("div", { className: "event", role: "option", "aria-selected": String(at === selected),
        "aria-posinset": at + 1, "aria-setsize": shown.length },
        element("span", { textContent: clock(event.time) }),
        element("span", { textContent: offset(event.time - zero.time) }),
        element("span", { textContent: event.source }),
        element("span", { textContent: event.text, title: event.text }));
    row.children[2].style.color = sources[event.source] || "inherit";
    row.dataset.at = at;
    row.style.top = `${at * row_height}px`;
    if (at === selected) {
        row.id = "selected-event";
    }
    return row;
}

function clock(time) {
    const date = new Date(time * 1000);
    const two = (number) => String(number).padStart(2, "0");
    const parts = [date.getHours(), date.getMinutes(), date.getSeconds()].map(two).join(":");
    return `${parts}.${String(date.getMilliseconds()).padStart(3, "0")}`;
}

export const offset = (seconds) => `${seconds < 0 ? "−" : "+"}${Math.abs(seconds).toFixed(3)} s`;
