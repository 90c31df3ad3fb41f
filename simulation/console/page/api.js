// Asks the console's server for something, and says what went wrong.

import { $, element } from "./dom.js";

const token = document.querySelector("meta[name=token]").content;
const said_for = 8000; // milliseconds

export async function ask(path, body) {
    const answer = await fetch(path, {
        method: "POST",
        headers: { "Content-Type": "application/json", "X-Station-Token": token },
        body: JSON.stringify(body),
    });
    const values = await answer.json();
    if (!answer.ok) {
        throw new Error(values.error);
    }
    return values;
}

// True if it is done. What a person does may fail; they are told why.
export async function act(path, body = {}) {
    try {
        await ask(path, body);
        return true;
    } catch (error) {
        complain(error instanceof TypeError ? "The station does not answer." : error.message);
        return false;
    }
}

export function complain(text) {
    const said = element("p", { textContent: text });
    $("errors").append(said);
    setTimeout(() => said.remove(), said_for);
}
