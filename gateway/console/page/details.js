// One event in full: what it is, its reply or request, its text and its bytes.
import { answering } from "./journal.js";
import { dump } from "./bytes.js";
import { facts, make, visible_nodes } from "./dom.js";
import { count, pretty_json, shell_word, span, time_of_day } from "./format.js";
import { direction, title_of } from "./rows.js";
import { piece_of } from "./story.js";

/** A button that leads to another event, with the time between. */
function way_to(label, event, from, go) {
    const between = event.at - from.at;
    return make("button", { type: "button", class: "way", onclick: () => go(event) },
        `${label} #${event.id}`, make("span", { class: "faint" },
            ` ${span(Math.abs(between))} ${between < 0 ? "before" : "later"}`));
}

function ways(event, go) {
    const is_piece = event.type === 231;
    const request_name = is_piece ? "Asked for in" : "Request";
    const reply_name = is_piece ? "Piece" : "Reply";
    return [event.answers && way_to(request_name, event.answers, event, go),
        (event.answered_by ?? []).map((reply) => way_to(reply_name, reply, event, go))];
}

/** What was answered, or why nothing was. */
function reply_words(event) {
    if (event.event !== "frame" || event.from !== "app" || event.type === 231) {
        return null;
    }
    const first = event.answered_by?.[0];
    return first ? `after ${span(first.at - event.at)}` : `${event.silence ?? "none yet"} (${answering(event)})`;
}

function facts_of(event, clients) {
    const peer = clients.get(event.client);
    return facts([
        ["Event", `#${event.id}`],
        ["Time", time_of_day(event.at)],
        ["From", direction(event) || null],
        ["Client", event.client === undefined ? null : `${event.client}${peer ? ` (${peer})` : ""}`],
        ["Type", event.type === undefined ? null : String(event.type)],
        ["Number", event.number === undefined ? null : String(event.number)],
        ["ret", event.ret === undefined ? null : `${event.ret} ${event.ret === 0 ? "success" : "failure"}`],
        ["Reply", reply_words(event)],
        ["Bytes", event.hex === undefined ? null : count(event.bytes ?? event.hex.length / 2)],
        ["CRC", event.crc === false ? "wrong" : null],
        ["Payload", event.coding ?? null],
        ["Segment", event.segment ? `${event.segment[1]} of ${event.segment[0]}` : null],
        ["Peer", event.peer ?? null],
        ["Port", event.port === undefined ? null : String(event.port)],
        ["Level", event.level === undefined ? null : String(event.level)],
    ].map(([term, value]) => [term, value === null ? null : visible_nodes(value)]));
}

function text_block(title, text) {
    return [make("h3", {}, title),
        make("pre", { class: "text", tabindex: "0", role: "region", "aria-label": title }, pretty_json(text))];
}

function json_block(title, value) {
    return value === undefined ? [] : text_block(title, typeof value === "string" ? value : JSON.stringify(value));
}

function texts_of(event) {
    switch (event.event) {
    case "call": return [json_block("Arguments", event.arguments), json_block("Result", event.result)];
    case "control": return [text_block("Line", ["engr_gatewayctl", ...event.line].map(shell_word).join(" ")),
        json_block("Answer", event.answer)];
    default: return event.text && !piece_of(event) ? text_block("Text", event.text) : [];
    }
}

/**
 * Shows an event.
 *
 * @param pane     where
 * @param clients  number to address
 * @param go       (event) leads to another event
 */
export function show_details(pane, event, clients, go) {
    pane.querySelector("h2").replaceChildren(...visible_nodes(title_of(event)));
    const cut = event.text_bytes && make("p", { class: "faint" },
        `Cut: the text has ${count(event.text_bytes)} bytes.`);
    pane.querySelector(".content").replaceChildren(...[
        make("div", { class: "ways" }, ways(event, go)),
        facts_of(event, clients),
        make("div", { class: "blocks" },
            make("div", {}, texts_of(event), cut),
            event.hex && make("div", {}, make("h3", {}, "Bytes"), dump(event))),
    ].filter(Boolean));
}
