// What the gateway is and has beside its devices: record, clients, joining, groups, scenes, network, configuration.
import { by_id, facts, keep_children, make, set_text, visible } from "./dom.js";
import { number_of, time_of_day } from "./format.js";

/** A value of the status as a text. */
function plain(value) {
    if (value === null || value === undefined || value === "") {
        return "–";
    }
    return visible(typeof value === "object" ? JSON.stringify(value) : value);
}

/** The members of an object as facts; what is marked for a moment when it has changed. */
function members(value, before) {
    return facts(Object.entries(value ?? {}).map(([name, each]) => {
        const is_changed = before !== undefined && JSON.stringify(each) !== JSON.stringify(before[name]);
        return [visible(name), make("span", { class: is_changed ? "changed" : null }, plain(each))];
    }));
}

/** The actions of a scene: which device does what. */
function actions(list) {
    return make("ul", { class: "plain" }, (Array.isArray(list) ? list : []).map((action) => make("li", {},
        make("code", {}, plain(action.cid ?? action.devId ?? action.gid ?? "")), ` ${plain(action.dps ?? action)}`)));
}

function section(title, content) {
    return make("section", {}, make("h3", {}, title), content);
}

function clients_table(clients) {
    if (clients.length === 0) {
        return make("p", { class: "faint" }, "No app is connected.");
    }
    return make("table", {}, make("thead", {}, make("tr", {}, ["Client", "Address", "Since"].map((title) =>
        make("th", { scope: "col" }, title)))),
    make("tbody", {}, clients.map((client) => make("tr", {}, make("td", { class: "number" }, String(client.client)),
        make("td", {}, visible(client.peer)), make("td", { class: "number" }, time_of_day(client.since))))));
}

function joining_words({ open, seconds_left, waiting }) {
    return make("p", {}, open ? `Open for ${seconds_left} s more, ` : "Closed, ", `${number_of(waiting, "device")} `
        + `${waiting === 1 ? "waits" : "wait"} to join.`, open && make("progress", { max: 120, value: seconds_left,
        "aria-label": "seconds left" }));
}

function list_or_none(entries, what) {
    return entries.length === 0 ? make("p", { class: "faint" }, `No ${what}.`) : make("dl", { class: "wide" }, entries);
}

function entry(title, content) {
    return [make("dt", {}, title), make("dd", {}, content)];
}

function groups_list(groups) {
    return list_or_none(groups.map(({ gid, cids }) => entry(`Group ${visible(gid)}`,
        cids.map((device) => [make("code", {}, visible(device)), " "]))), "groups");
}

function scenes_list(scenes) {
    return list_or_none(scenes.map((scene) =>
        entry(`Scene ${visible(scene.sid)} of group ${visible(scene.gid)}`, actions(scene.actions))), "scenes");
}

function linkage_list(linkage) {
    return list_or_none(linkage.scenes.map((scene) =>
        entry(`${visible(scene.sceneId)} ${visible(scene.name)}`, actions(scene.actions))), "linkage scenes");
}

function panels_list(panels) {
    return list_or_none(panels.map(({ cid, buttons }) => entry(visible(cid),
        make("ul", { class: "plain" }, buttons.map((button) =>
            make("li", {}, `button ${plain(button.button)}: scene ${plain(button.sid)} of group `
                + plain(button.gid)))))),
    "scene panels");
}

/** Sections by title: the part of the state, and how it is shown. */
const sections = [
    ["Clients", ({ clients }) => clients, clients_table],
    ["Joining", ({ status }) => status.joining, joining_words],
    ["Gateway", ({ status }) => status.gateway, members],
    ["Agent", ({ status }) => ({ mode: status.mode, started: status.started, listening: status.listening,
        ext_stat: status.ext_stat, token_bound: status.token_bound,
        engineering_ended: status.engineering_ended }), members],
    ["Groups", ({ groups }) => groups, groups_list],
    ["Scenes", ({ scenes }) => scenes, scenes_list],
    ["Linkage scenes", ({ linkage }) => linkage, linkage_list],
    ["Scene panels", ({ panels }) => panels, panels_list],
    ["Last scene", ({ status }) => ({ last_scene: status.last_scene }), members],
    ["Network", ({ status }) => ({ ...status.network, ...Object.fromEntries(Object.entries(status.wifi ?? {})
        .map(([name, value]) => [`wifi ${name}`, value])), airkiss: status.airkiss }), members],
    ["Settings", ({ status }) => status.settings ?? {}, (value, before) =>
        (Object.keys(value).length === 0 ? make("p", { class: "faint" }, "No settings.") : members(value, before))],
    ["Configuration", ({ status }) => status.config ?? {}, members],
];

/** Shows the state of the gateway. */
export function show_gateway(state) {
    keep_children(by_id("gateway-sections"), sections.map(([title, part]) => [title, part(state)]),
        (title, content, before) => section(title, sections.find(([name]) => name === title)[2](content, before)));
    const { gateway = {}, listening } = state.status;
    set_text(by_id("gateway-name"), visible(`${gateway.gw_id ?? ""} ${gateway.gw_sw_ver ?? ""}`
        + `${listening ? "" : " (its server is closed)"}`));
}
