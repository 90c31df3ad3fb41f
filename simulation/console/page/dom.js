// Small helpers around the document. Texts only ever become text nodes.

export const $ = (name) => document.getElementById(name);

export function element(tag, properties = {}, ...children) {
    const made = document.createElement(tag);
    for (const [name, value] of Object.entries(properties)) {
        if (name.includes("-") || name === "role" || name === "for") {
            made.setAttribute(name, value);
        } else {
            made[name] = value;
        }
    }
    made.append(...children);
    return made;
}

export function show_text(place, text) {
    if (place.textContent !== text) {
        place.textContent = text;
    }
}

export function press(button, is_pressed) {
    button.setAttribute("aria-pressed", String(Boolean(is_pressed)));
}

export const is_pressed = (button) => button.getAttribute("aria-pressed") === "true";

// The arrow keys, Home and End go from tab to tab, as everywhere.
export function make_tabs(list) {
    const tabs = [...list.querySelectorAll("[role=tab]")];
    const choose = (chosen) => {
        for (const tab of tabs) {
            const is_chosen = tab === chosen;
            tab.setAttribute("aria-selected", String(is_chosen));
            tab.tabIndex = is_chosen ? 0 : -1;
            $(tab.getAttribute("aria-controls")).hidden = !is_chosen;
        }
    };
    const steps = { ArrowLeft: -1, ArrowRight: 1 };
    list.addEventListener("click", (event) => {
        const tab = event.target.closest("[role=tab]");
        if (tab) {
            choose(tab);
        }
    });
    list.addEventListener("keydown", (event) => {
        const at = tabs.indexOf(event.target);
        let to = at + (steps[event.key] || 0);
        to = event.key === "Home" ? 0 : event.key === "End" ? tabs.length - 1 : to;
        if (to !== at) {
            const tab = tabs[(to + tabs.length) % tabs.length];
            choose(tab);
            tab.focus();
            event.preventDefault();
        }
    });
    choose(tabs[0]);
}
