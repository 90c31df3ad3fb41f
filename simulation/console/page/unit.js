// The unit: what is broken in it, its document, its health, its processes.

import { act } from "./api.js";
import { $, element, is_pressed, press, show_text } from "./dom.js";

// A button each: its path, what to post to break and to mend, and how to see which it is.
const breakages = [
    ["DHCP server", "dhcp", "/unit/dhcp", { on: true }, { on: false }, (unit) => unit.dhcp],
    ["Address lost", "address", "/unit/address", { state: "lost" }, { state: "back" }],
    ["Browser killed", "browser-killed", "/unit/browser", { state: "killed" }, { state: "back" },
        (unit) => /killed/.test(unit.broken.browser)],
    ["Browser hung", "browser-hung", "/unit/browser", { state: "hung" }, { state: "back" },
        (unit) => /hangs/.test(unit.broken.browser)],
    ["Web server killed", "web-server", "/unit/web-server", { state: "killed" }, { state: "back" }],
    ["/dev/shm full", "memory", "/unit/memory", { state: "full" }, { state: "free" }],
    ["Clock an hour ahead", "clock", "/unit/clock", { offset: 3600 }, { offset: 0 }],
];

export function start_unit(described) {
    for (const [words, name, path, broken, mended] of breakages) {
        const button = element("button", { type: "button", id: name, textContent: words });
        press(button, false);
        button.addEventListener("click", () => act(path, is_pressed(button) ? mended : broken));
        $("breakages").append(button);
    }
    const reset = element("button", { type: "button", id: "reset", textContent: "Reset the unit" });
    reset.addEventListener("click", () => act("/unit/reset"));
    $("breakages").append(reset);
    $("tools").append(...described.tools.map(make_tool));
    $("mark").addEventListener("click", () => act("/unit/mark"));
    $("undo").addEventListener("click", () => act("/undo"));
}

function make_tool(tool) {
    const make = (state, words, more) => {
        const button = element("button", { type: "button", textContent: words, "aria-label": `${tool} ${state}` });
        button.dataset.tool = tool;
        button.dataset.state = state;
        press(button, false);
        button.addEventListener("click", () =>
            act("/unit/tool", is_pressed(button) ? { tool, state: "back" } : { tool, state, ...more() }));
        return button;
    };
    return element("div", { className: "tool" }, element("span", { textContent: tool }),
        make("fails", "fail", () => ({ status: Number($("tool-status").value) })),
        make("slow", "slow", () => ({ seconds: Number($("tool-seconds").value) })));
}

export function show_unit(unit) {
    show_text($("unit-address"), unit.address || "without an address");
    for (const [, name, , , , is_so] of breakages) {
        press($(name), is_so ? is_so(unit) : name in unit.broken);
    }
    for (const button of $("tools").querySelectorAll("button")) {
        const words = unit.broken[button.dataset.tool] || "";
        press(button, words && /fails/.test(words) === (button.dataset.state === "fails"));
    }
    const words = Object.values(unit.broken);
    show_text($("broken"), unit.running ? words.join(", ") : ["the service has ended", ...words].join(", "));
    show_document(unit);
    show_health(unit);
    show_processes(unit.processes);
}

const plain = (value) => typeof value === "string" ? value : JSON.stringify(value);

function show_document(unit) {
    const place = $("document-members");
    const news = JSON.stringify([unit.document, unit.changes]);
    if (place.dataset.shown === news) {
        return;
    }
    place.dataset.shown = news;
    const changed = new Map(unit.changes.map((change) => [change.member, change]));
    const names = new Set([...Object.keys(unit.document), ...changed.keys()]);
    place.replaceChildren(...[...names].flatMap((name) => {
        const change = changed.get(name);
        const value = element("dd", { textContent: name in unit.document ? plain(unit.document[name]) : "" });
        if (change) {
            value.className = "changed";
            if (change.before !== null) {
                value.append(" ", element("span", { className: "before", textContent: plain(change.before) }));
            }
        }
        return [element("dt", { textContent: name }), value];
    }));
    show_text($("document-text"), unit.document_text || "There is no document.");
}

function show_health(unit) {
    show_text($("kicks"), String(unit.kicks));
    $("kicks-meter").hidden = unit.kicks_left === null;
    $("kicks-meter").value = unit.kicks_left ?? 0;
    show_text($("kicks-left"), unit.kicks_left === null ? "unknown" : `${unit.kicks_left} of ${unit.budget}`);
    const age = unit.liveness_age;
    $("liveness-meter").hidden = age === null;
    $("liveness-meter").value = age ?? 0;
    show_text($("liveness"), age === null ? "never" : `${age} s ago; stale after ${unit.liveness_limit} s`);
    show_text($("current-gateway"), unit.current_gateway || "none yet");
    show_text($("configuration"), unit.configuration || "none");
}

function show_processes(processes) {
    const rows = processes.map((process) => [process.pid, process.state,
        Math.round(process.kilobytes / 1024), process.command || `(${process.name})`]);
    const place = $("process-rows");
    if (place.dataset.shown !== JSON.stringify(rows)) {
        place.dataset.shown = JSON.stringify(rows);
        place.replaceChildren(...rows.map((cells) =>
            element("tr", {}, ...cells.map((cell) => element("td", { textContent: cell, title: cell })))));
    }
}
