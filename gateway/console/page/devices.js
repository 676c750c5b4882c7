// The devices and their data points as they stand; what has changed is marked for a moment.
import { by_id, keep_children, make, set_text, visible } from "./dom.js";
import { count, number_of } from "./format.js";

/** Devices that are listed at once; of more, the filter chooses. */
const listed_max = 300;

const states = { 0: "not bound", 1: "bound" };

function is_online(device) {
    return device.online === 1;
}

function online_word(device) {
    return is_online(device) ? "online" : "offline";
}

/** The value that a click offers to report. */
function next_value(value) {
    return typeof value === "boolean" ? String(!value) : String(value);
}

export class device_panel {
    #devices = [];
    #shown_before = false;

    /**
     * @param prepare  (verb, texts) opens a command's form, filled in
     * @param send     (words) carries a command out
     */
    constructor(prepare, send) {
        Object.assign(this, { prepare, send });
        by_id("device-filter").addEventListener("input", () => this.#draw());
    }

    show_state({ devices }) {
        this.#devices = devices;
        this.#draw();
        this.#shown_before = true;
    }

    #draw() {
        const wanted = by_id("device-filter").value.toLowerCase();
        const matching = this.#devices.filter((device) =>
            `${device.dev_id} ${device.pid} ${online_word(device)}`.toLowerCase().includes(wanted));
        const listed = matching.slice(0, listed_max);
        const online = this.#devices.filter(is_online).length;
        set_text(by_id("device-count"), `${number_of(this.#devices.length, "device")}, ${count(online)} online`
            + `${matching.length > listed.length ? `; the first ${listed_max} that match are listed` : ""}`);
        keep_children(by_id("device-list"), listed.map((device) => [device.dev_id, device]),
            (id, device, before) => this.#row(device, before));
    }

    #row(device, before) {
        const online = is_online(device);
        const has_changed = (value, old) => before !== undefined && JSON.stringify(value) !== JSON.stringify(old);
        const is_new = before === undefined && this.#shown_before;
        const points = Object.entries(device.dps ?? {}).map(([dp, value]) => make("button", { type: "button",
            class: `point${has_changed(value, before?.dps?.[dp]) ? " changed" : ""}`,
            title: `Report data point ${visible(dp)}…`,
            onclick: () => this.prepare("report", [device.dev_id, `${dp}=${next_value(value)}`]) },
        make("span", { class: "faint" }, `${visible(dp)} `),
        visible(typeof value === "string" ? value : JSON.stringify(value))));
        return make("tr", { class: is_new ? "changed" : null },
            make("td", {}, make("button", { type: "button", title: online ? "Take it offline" : "Bring it online",
                class: has_changed(device.online, before?.online) ? "changed" : null,
                "aria-label": `${visible(device.dev_id)} is ${online_word(device)}, change that`,
                onclick: () => this.send(["device", device.dev_id, "online", online ? "0" : "1"]) },
            make("span", { class: `dot ${online ? "good" : "off"}` }), online_word(device))),
            make("th", { scope: "row" }, visible(device.dev_id),
                make("span", { class: "faint" }, ` ${visible(device.pid)} ${visible(device.sw_ver)}`
                    + `${device.state === 1 ? "" : ` ${states[device.state] ?? `state ${device.state}`}`}`
                    + `${device.excluded ? " excluded" : ""}`)),
            make("td", { class: "points" }, points));
    }
}
