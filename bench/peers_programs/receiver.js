// receiver.js PORT DOCUMENT LOG
"use strict";
const fs = require("fs");
const net = require("net");

const [port, documentPath, logPath] = process.argv.slice(2);
const textPosition = 6; // in a display alert

function localTime(now) {
    const two = (number) => String(number % 100).padStart(2, "0");
    const day = [now.getFullYear(), now.getMonth() + 1, now.getDate()].map(two).join("-");
    return `${day} ${[now.getHours(), now.getMinutes(), now.getSeconds()].map(two).join(":")}: `;
}

function writeDocument(text) {
    const now = new Date();
    const seconds = Math.floor(now.getTime() / 1000);
    const document =
        '[{"alert_type":"display_alert", "show_turnout_timer":"1", ' +
        `"alert_time":"${seconds}", "turnout_end":"0", "turnout_zero":"0", ` +
        `"turnout_reverse":"0", "alert_expiration":"${seconds + 120}", ` +
        `"alert_area":"${text}", "map_url":"", "units":[]}]`;
    fs.writeSync(1, `Writing JSON: ${document}\n`);
    fs.writeFileSync(documentPath, document);
    fs.appendFileSync(logPath, `${localTime(now)}${document}\n`);
    fs.statSync("/dev/shm/web_watchdog", { throwIfNoEntry: false });
}

net.createServer((connection) => {
    connection.once("data", (message) => {
        connection.destroy();
        writeDocument(message.toString("utf8", textPosition));
    });
}).listen(Number(port), "0.0.0.0");
