// How an event reads as one row of the time line.
import { count, number_of, shell_word } from "./format.js";
import { piece_of, wanted_words } from "./story.js";

/** Characters of a payload that a row shows. */
const shown_characters = 240;

function shortened(text) {
    return text.length > shown_characters ? `${text.slice(0, shown_characters)}…` : text;
}

function compact(value) {
    return value === undefined ? "" : JSON.stringify(value);
}

/** "→ app" is what an app sent, "← gateway" what the gateway sent. */
export function direction(event) {
    return { app: "→ app", gateway: "← gateway" }[event.from] ?? "";
}

function frame_row(event) {
    const piece = piece_of(event);
    const text = piece ? `${number_of(piece.length, "byte")} of an image from ${count(piece.offset)} on`
        : event.text ?? "";
    return { from: direction(event), what: event.name ?? "unknown type", number: `${event.type} #${event.number}`,
        ret: event.from === "gateway" && event.ret !== undefined ? String(event.ret) : event.failed ? "!" : "",
        text: [event.silence ?? event.note, wanted_words(event) + text].filter(Boolean).join(": ") };
}

const writers = {
    frame: frame_row,
    bytes: (event) => ({ from: direction(event), what: "bytes", ret: "!", text: `no sound frame: ${event.hex ?? ""}` }),
    connected: (event) => ({ from: "→ app", what: "connected", text: `connected from ${event.peer ?? "?"}` }),
    closed: (event) => ({ from: event.by === "gateway" ? "← gateway" : "→ app", what: "closed",
        text: event.by === "gateway" ? "the gateway closed the connection" : "left" }),
    datagram: (event) => ({ from: direction(event), what: event.name ?? "datagram", number: `UDP ${event.port}`,
        ret: event.ret === undefined ? "" : String(event.ret),
        text: `${event.peer}  ${event.text ?? event.hex ?? ""}` }),
    call: (event) => ({ from: "call", what: event.name, ret: returned(event.result),
        text: `${compact(event.arguments)}${is_long(event.result) ? ` → ${compact(event.result)}` : ""}` }),
    control: (event) => ({ from: "command", what: event.line?.[0] ?? "", ret: event.answer?.error ? "!" : "",
        text: `${(event.line ?? []).slice(1).map(shell_word).join(" ")} → ${
            event.answer?.error ?? compact(event.answer?.result ?? event.answer)}` }),
    gap: (event) => ({ what: "gap", text: event.text }),
    lost: (event) => ({ what: "gap", text: `${number_of(event.events, "event")} lost: they came too fast` }),
    log: (event) => ({ from: `log ${event.level}`, what: "log line", text: event.text }),
    activity: (event) => ({ from: "activity", what: "activity", text: event.text }),
};

function is_long(result) {
    return result !== null && result !== undefined && typeof result !== "number";
}

function returned(result) {
    return typeof result === "number" ? String(result) : "";
}

/** The cells of a row: from, what, number, ret and text, all of them texts. */
export function cells_of(event) {
    const cells = (writers[event.event] ?? ((other) => ({ what: other.event, text: compact(other) })))(event);
    return { from: "", what: "", number: "", ret: "", ...cells, text: shortened(cells.text ?? "") };
}

/** An event in a few words, to name it elsewhere. */
export function title_of(event) {
    const cells = cells_of(event);
    return [cells.what, cells.number].filter(Boolean).join(" ");
}
