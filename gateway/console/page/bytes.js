// The bytes of a frame, with its parts told apart.
import { make } from "./dom.js";
import { count } from "./format.js";
import { piece_of } from "./story.js";

/** Bytes that are shown unless all are asked for. */
const shown_bytes = 1024;
const bytes_in_a_line = 16;

/** The parts before the payload, 4 bytes each. */
const request_head = ["head", "number", "type", "length"];
const reply_head = [...request_head, "ret"];
const segment_head = [...reply_head, "segments", "segment"];
const tail = ["CRC", "tail"];
const word_bytes = 4;
const log_type = 254;

/**
 * Where the parts of a frame lie.
 *
 * @return [name, first byte, number of bytes] in order; one part for what is no frame
 */
function parts_of(event, byte_count) {
    const is_reply = event.from === "gateway";
    const request_names = piece_of(event) ? [...request_head, "offset"] : request_head;
    const names = is_reply ? (event.type === log_type ? segment_head : reply_head) : request_names;
    if (event.event === "bytes" || byte_count < (names.length + tail.length) * word_bytes) {
        return [["bytes", 0, byte_count]];
    }
    const parts = names.map((name, i) => [name, i * word_bytes, word_bytes]);
    const payload_start = names.length * word_bytes;
    const payload_bytes = byte_count - payload_start - tail.length * word_bytes;
    if (payload_bytes > 0) {
        parts.push(["payload", payload_start, payload_bytes]);
    }
    tail.forEach((name, i) => parts.push([name, payload_start + payload_bytes + i * word_bytes, word_bytes]));
    return parts;
}

function part_class(name) {
    return `part-${name.toLowerCase()}`;
}

/** The names of the parts in their colours, with the value of each word. */
function legend(event, hex, parts) {
    return make("ul", { class: "legend" }, parts.map(([name, from, length]) => {
        const word = length === word_bytes ? hex.slice(from * 2, (from + length) * 2) : "";
        const says = word && name !== "head" && name !== "tail" && name !== "CRC" ? ` ${parseInt(word, 16)}`
            : name === "payload" ? ` ${count(length)} bytes` : "";
        return make("li", { class: part_class(name) }, name, make("span", { class: "faint" }, says));
    }));
}

/** Runs of bytes of one line that lie in the same part: [class, first, last + 1]. */
function runs_of_line(parts, from, to) {
    return parts.map(([name, start, length]) => [part_class(name), Math.max(start, from), Math.min(start + length, to)])
        .filter(([, start, end]) => start < end);
}

function character(byte) {
    return byte >= 0x20 && byte < 0x7f ? String.fromCharCode(byte) : ".";
}

function line_of(hex, parts, from) {
    const to = Math.min(from + bytes_in_a_line, hex.length / 2);
    const pair = (i) => hex.slice(i * 2, i * 2 + 2);
    const texts = (start, end, write) => Array.from({ length: end - start }, (_, i) => write(start + i));
    const runs = runs_of_line(parts, from, to);
    const missing = "   ".repeat(bytes_in_a_line - (to - from));
    return [make("span", { class: "offset" }, from.toString(16).padStart(6, "0")), "  ",
        runs.map(([name, start, end]) =>
            make("span", { class: name }, texts(start, end, (i) => `${pair(i)}${i % 8 === 7 ? "  " : " "}`).join(""))),
        missing, to - from < 8 ? " " : "", to - from < bytes_in_a_line ? " " : "",
        runs.map(([name, start, end]) =>
            make("span", { class: name }, texts(start, end, (i) => character(parseInt(pair(i), 16))).join(""))), "\n"];
}

/** The bytes as a dump with a legend; of many the first ones, and a button for the rest. */
export function dump(event) {
    const { hex } = event;
    const known = hex.length / 2;
    const total = event.bytes ?? known;
    const parts = parts_of(event, total);
    const block = make("pre", { class: "dump", tabindex: "0", role: "region", "aria-label": "bytes of the frame" });
    const show = (to) => block.replaceChildren(...Array.from({ length: Math.ceil(to / bytes_in_a_line) },
        (_, i) => line_of(hex.slice(0, to * 2), parts, i * bytes_in_a_line)).flat(Infinity));
    show(Math.min(known, shown_bytes));
    const more = known > shown_bytes && make("button", { type: "button", onclick: (click) => {
        show(known);
        click.target.remove();
    } }, `Show all ${count(known)} bytes`);
    const note = known < total && make("p", { class: "faint" },
        `The gateway hands out the first ${count(known)} of ${count(total)} bytes.`);
    return [legend(event, hex, parts), block, more, note];
}
