// The television: its picture, its remote control, its bad habits.

import { act } from "./api.js";
import { $, is_pressed, press, show_text } from "./dom.js";

const slow_by = 3; // seconds
let shown = 0; // number of the picture that is loaded or being loaded
let wanted = 0;
let is_loading = false;
let is_live = false;

export function start_television() {
    $("power").addEventListener("click", () => act("/tv/power", { power: "toggle" }));
    for (const button of document.querySelectorAll("[data-input]")) {
        button.addEventListener("click", () => act("/tv/input", { input: button.dataset.input }));
    }
    for (const habit of ["deaf", "stubborn"]) {
        $(habit).addEventListener("click", () => act(`/tv/${habit}`, { on: !is_pressed($(habit)) }));
    }
    $("slow").addEventListener("click", () =>
        act("/tv/slow", { seconds: is_pressed($("slow")) ? 0 : slow_by }));
    $("cable").addEventListener("click", () =>
        act("/tv/cable", { state: is_pressed($("cable")) ? "in" : "out" }));
    for (const result of ["load", "error"]) {
        $("screen").addEventListener(result, () => {
            is_loading = false;
            load_picture();
        });
    }
}

export function show_television(tv) {
    show_text($("power-state"), tv.power);
    show_text($("input-state"), tv.input === "1.0.0.0" ? "input 1.0.0.0 (the unit)" : `input ${tv.input}`);
    $("led").className = tv.power === "on" ? "on" : tv.power === "in standby" ? "" : "waking";
    press($("deaf"), tv.deaf);
    press($("slow"), tv.slow > 0);
    press($("stubborn"), tv.stubborn);
    press($("cable"), tv.cable === "out");
    for (const button of document.querySelectorAll("[data-input]")) {
        button.classList.toggle("chosen", button.dataset.input === tv.input);
    }
    $("set").dataset.picture = tv.picture;
    draw_overlay(tv.picture);
}

function draw_overlay(picture) {
    const overlay = $("overlay");
    overlay.hidden = picture === "unit" && is_live;
    overlay.className = picture === "no signal" ? "signal" : picture.startsWith("input") ? "input" : "";
    const words = picture === "unit" ? "No browser is running" : picture === "nothing" ? "" : picture;
    show_text(overlay, words);
    $("screen").alt = picture === "unit" ? "The screen of the unit's browser" : `The television shows ${picture}`;
}

// The newest picture, one at a time: a slow reader skips some.
export function show_screen(screen) {
    wanted = screen.number;
    is_live = screen.live;
    draw_overlay($("set").dataset.picture || "nothing");
    load_picture();
}

function load_picture() {
    if (is_live && !is_loading && shown !== wanted) {
        is_loading = true;
        shown = wanted;
        $("screen").src = `/screen.jpg?number=${wanted}`;
    }
}
