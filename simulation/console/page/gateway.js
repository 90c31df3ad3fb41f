// The gateway: canned incidents, a form for each message, and what was received.

import { act, ask } from "./api.js";
import { $, element, show_text } from "./dom.js";

// As in docs/protocol.md.
const colors = ["red", "blue", "green", "yellow", "orange", "purple", "cyan", "white", "pink", "lime",
    "brown", "teal", "navy", "maroon", "silver", "gray"];
const most_units = 16;
const pause_before_explaining = 200; // milliseconds
const shown_bytes = 96;

let forms = [];
let readers = {}; // of the current form's fields, by name
let explaining = 0;
let asked = 0;

export function start_gateway(described) {
    forms = described.messages;
    for (const incident of described.incidents) {
        const button = element("button", { type: "button", textContent: incident.words });
        button.dataset.incident = incident.name;
        button.addEventListener("click", () => act("/gateway/incident", { name: incident.name }));
        $("incident-buttons").append(button);
    }
    $("message-name").append(...forms.map((form) => new Option(form.message.replaceAll("-", " "), form.message)));
    $("message-name").value = "detail-alert";
    $("message-name").addEventListener("change", show_form);
    $("message-form").addEventListener("input", explain_soon);
    $("message-form").addEventListener("submit", (event) => {
        event.preventDefault();
        act("/gateway/send", read_form());
    });
    show_form();
}

export function show_gateway(gateway) {
    show_text($("records-note"), gateway.heard ? `What the unit sent to port 5000 of ${gateway.address}.` :
        "Another gateway receives the records.");
    const lines = gateway.received.map((record) => `${record.words} (${record.hex})`);
    if ($("records").dataset.lines !== lines.join("\n")) {
        $("records").dataset.lines = lines.join("\n");
        $("records").replaceChildren(...lines.map((line) => element("li", { textContent: line })));
    }
}

const current_form = () => forms.find((form) => form.message === $("message-name").value);

function show_form() {
    const form = current_form();
    readers = {};
    show_text($("message-words"), form.words);
    const words = { tcp: "TCP", udp: "UDP" };
    const others = ["tcp", "udp"].filter((name) => !form.channels.includes(name));
    $("channel").replaceChildren(
        ...form.channels.map((name) => new Option(words[name], name)),
        ...others.map((name) => new Option(`${words[name]} (no effect)`, name)));
    $("message-fields").replaceChildren(...form.fields.map(make_field));
    explain();
}

function make_field(field) {
    if (field.kind === "units") {
        return make_units(field);
    }
    const is_long = field.name === "text" || field.name === "hex";
    const input = element(is_long ? "textarea" : "input", { id: `field-${field.name}` });
    if (field.kind === "number") {
        Object.assign(input, { type: "number", min: field.least, max: field.most });
    }
    input.value = field.default ?? "";
    readers[field.name] = () => {
        if (field.kind !== "number") {
            return input.value;
        }
        return input.value === "" ? null : Number(input.value);
    };
    return element("label", { className: field.kind }, element("span", { textContent: field.words }), input);
}

function make_units(field) {
    const rows = element("div");
    const add = element("button", { type: "button", id: "add-unit", textContent: "Add a unit" });
    add.addEventListener("click", () => {
        rows.append(make_unit(rows.children.length));
        rows.lastChild.querySelector("input").focus();
        add.disabled = rows.children.length >= most_units;
        explain_soon();
    });
    rows.addEventListener("click", () => { add.disabled = rows.children.length >= most_units; });
    readers[field.name] = () => [...rows.children].map((row) => ({
        name: row.querySelector("input").value,
        color: Number(row.querySelector("select").value),
    }));
    return element("fieldset", {}, element("legend", { textContent: field.words }), rows, add);
}

function make_unit(number) {
    const name = element("input", { value: `E${number + 1}`, "aria-label": `Name of unit ${number + 1}` });
    const color = element("select", { "aria-label": `Color of unit ${number + 1}` });
    color.append(...colors.map((word, at) => new Option(`${at + 1} ${word}`, at + 1)));
    color.value = String(number % colors.length + 1);
    const swatch = element("span", { className: "swatch" });
    const paint = () => { swatch.style.background = colors[color.value - 1]; };
    color.addEventListener("change", paint);
    paint();
    const remove = element("button", { type: "button", textContent: "Remove", "aria-label": `Remove unit ${number + 1}` });
    const row = element("div", { className: "unit" }, name, color, swatch, remove);
    remove.addEventListener("click", () => {
        row.remove();
        explain_soon();
    });
    return row;
}

function read_form() {
    const body = { message: $("message-name").value, channel: $("channel").value };
    for (const [name, read] of Object.entries(readers)) {
        const value = read();
        if (value !== null) {
            body[name] = value;
        }
    }
    return body;
}

function explain_soon() {
    clearTimeout(explaining);
    explaining = setTimeout(explain, pause_before_explaining);
}

async function explain() {
    const number = ++asked;
    let text, bytes = "";
    try {
        const answer = await ask("/gateway/decode", read_form());
        text = answer.explanation.replace(/(\S) {3,}/g, "$1   "); // its columns are for wide terminals
        bytes = answer.hex;
    } catch (error) {
        text = error.message;
    }
    if (number === asked) { // and no newer question is under way
        show_text($("explanation"), text);
        const start = bytes.slice(0, 3 * shown_bytes);
        show_text($("message-hex"), start === bytes ? bytes : `${start}…`);
    }
}
