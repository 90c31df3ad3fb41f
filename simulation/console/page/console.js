// Brings the parts of the console together, and keeps them up to date.

import { $, make_tabs, show_text } from "./dom.js";
import { start_axis } from "./axis.js";
import { show_gateway, start_gateway } from "./gateway.js";
import { show_screen, show_television, start_television } from "./television.js";
import { add_event, start_timeline } from "./timeline.js";
import { show_unit, start_unit } from "./unit.js";

const own_station = document.querySelector("meta[name=station]").content;

async function start() {
    document.querySelectorAll("[role=tablist]").forEach(make_tabs);
    start_television();
    start_timeline();
    start_axis();
    const described = await (await fetch("/actions")).json();
    start_gateway(described);
    start_unit(described);
    follow();
}

// The browser itself connects again, and asks for what came after the last event that it has.
function follow() {
    const stream = new EventSource("/events");
    stream.addEventListener("message", (message) => add_event(JSON.parse(message.data)));
    stream.addEventListener("state", (message) => {
        const state = JSON.parse(message.data);
        show_television(state.tv);
        show_gateway(state.gateway);
        show_unit(state.unit);
        document.body.dataset.ready = "yes";
    });
    stream.addEventListener("station", (message) => {
        if (JSON.parse(message.data).id !== own_station) {
            location.reload(); // another station has taken the place of this page's
        }
    });
    stream.addEventListener("screen", (message) => show_screen(JSON.parse(message.data)));
    stream.addEventListener("open", () => {
        show_text($("link"), `connected to ${location.host}`);
        $("link").className = "";
    });
    stream.addEventListener("error", () => {
        show_text($("link"), "the station does not answer: has it ended?");
        $("link").className = "lost";
    });
}

start();
