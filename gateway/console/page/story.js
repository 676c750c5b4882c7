// The stories of firmware upgrades, put together from the events: what was announced, asked for and sent, what was
// not as it has to be, and why it ended.
import { count, number_of, parsed, span } from "./format.js";

const announcement_types = [229, 250];
const start_type = 230;
const piece_type = 231;
const percent_type = 232;
const version_type = 233;
/** The frame types of an upgrade. */
export const upgrade_types = new Set([...announcement_types, start_type, piece_type, percent_type, version_type]);

const stories_max = 20;
const steps_max = 200;
/** A piece begins with its offset, behind the four words of the head; two words end the frame. */
const piece_head_bytes = 16;
const offset_bytes = 4;
const tail_bytes = 8;
/** How long before the end of an upgrade an app may have left to be the cause of it. */
const leaving_us = 2_000_000;

/** What to make of a reason: how it reads, and what to look at. */
const advice = [
    [/set by the scenario/, "This failure is made on purpose: upgrade.fail_at of the gateway's scenario. Start the"
        + " gateway without it, and the next try goes through."],
    [/bytes \d+ to \d+ came/, "The app sent other bytes than it was asked for. Compare the offset in the request with"
        + " that of the piece behind it."],
    [/MD5/, "What came is not what was announced: the file changed meanwhile, or the app announced another one."],
    [/only \d+ of \d+ bytes came/, "The app stopped before the end of the image."],
    [/no room/, "Make room on the gateway's disk, or announce the right size."],
    [/installed already/, "The scenario refuses a version that is installed (refuse_same_version)."],
    [/before its transfer began/, "An app left before the gateway had asked for the first piece."],
    [/dev is upgrading/, "Another upgrade is under way. It ends when it is done, or when an app closes its"
        + " connection."],
    [/file_size is zero/, "Nothing was announced: send 250 or 229 with the size of the image first."],
    [/ug_cb error/, "The gateway's service refused the image; the calls and the log say why."],
    [/func not exist/, "The callback is absent: set it to present with the command callback."],
    [/Parse Fails|data format error/, "The request is not as it has to be; look at its text."],
];

function advice_for(reason) {
    return advice.find(([pattern]) => pattern.test(reason))?.[1] ?? "";
}

/** Where the piece of an image that an app sends begins, and its bytes; null for other frames. */
export function piece_of({ type, from, hex = "", bytes }) {
    const head = (piece_head_bytes + offset_bytes) * 2;
    if (type !== piece_type || from !== "app" || hex.length < head) {
        return null;
    }
    return { offset: parseInt(hex.slice(piece_head_bytes * 2, head), 16),
        length: Math.max(0, (bytes ?? hex.length / 2) - piece_head_bytes - offset_bytes - tail_bytes) };
}

/** Has the event shown as a failure wherever it is shown. */
function note_failure(event, text) {
    event.failed = true;
    event.note ??= event.event === "frame" ? text : undefined;
    event.stamp = (event.stamp ?? 0) + 1;
}

/** What a gateway's request for a piece asks for, in words; "" for other frames. */
export function wanted_words({ type, from, text }) {
    const { offset, downloadSize } = (type === piece_type && from === "gateway" && parsed(text)) || {};
    return offset === undefined ? "" : downloadSize === 0 ? "has all bytes "
        : `wants ${count(downloadSize)} bytes from ${count(offset)} on `;
}

/** One upgrade. */
class story {
    /** waiting (for the reply), receiving, complete, installed, failed or refused. */
    state = "waiting";
    reason = "";
    advice = "";
    /** The event that shows why it ended. */
    cause = null;
    steps = [];
    pieces = 0;
    asked = 0;
    retries = 0;
    holes = [];
    /** What has come: [first byte, last + 1], in order. */
    ranges = [];
    slowest_us = 0;
    percent = null;
    wanted = null;
    #furthest = 0;
    #last_piece = null;

    constructor(start, announced) {
        const request = parsed(start.text) ?? {};
        this.start = start;
        this.client = start.client;
        this.device = String(request.cid ?? "");
        this.version = String(announced?.request.swVer ?? "");
        this.size = Number(announced?.request.fileSize ?? 0);
        this.md5 = String(announced?.request.fileMd5 ?? "");
        if (announced) {
            this.tell(announced.event, `client ${announced.event.client} announces version ${this.version}, `
                + `${number_of(this.size, "byte")}`);
        } else {
            this.tell(start, "nothing was announced that could be seen here");
        }
        this.tell(start, `client ${start.client} starts the upgrade of ${this.device}`);
    }

    get is_over() {
        return ["installed", "failed", "refused"].includes(this.state);
    }

    get received() {
        return this.ranges.reduce((sum, [from, to]) => sum + to - from, 0);
    }

    tell(event, text, tone = "") {
        if (tone === "bad") {
            note_failure(event, text);
        }
        if (this.steps.length < steps_max) {
            this.steps.push({ event, at: event.at, text, tone });
        }
    }

    end(state, event, reason) {
        this.state = state;
        this.ended = event;
        this.reason = reason;
        this.advice = reason ? advice_for(reason) : "";
        if (this.#last_piece && /^byte|^bytes/.test(reason)) {
            note_failure(this.#last_piece, `not taken: ${reason}`);
            this.cause ??= this.#last_piece;
        }
        this.tell(event, reason ? `${state}: ${reason}` : state, state === "installed" ? "good" : "bad");
        this.cause ??= event;
    }

    take_reply(event) {
        if (this.is_over) {
            this.tell(event, event.text || "the gateway accepts", event.ret === 0 ? "" : "bad");
        } else if (event.ret !== 0) {
            this.end("refused", event, event.text || "without a word");
        } else if (this.state === "waiting") {
            this.state = "receiving";
            this.tell(event, "the gateway accepts");
        }
    }

    take_wanted(event) {
        const request = parsed(event.text) ?? {};
        const offset = Number(request.offset);
        const size = Number(request.downloadSize);
        if (size === 0) {
            this.state = "complete";
            this.tell(event, "all bytes are there; the gateway checks and installs the image", "good");
            return;
        }
        this.state = "receiving";
        const is_first = this.asked++ === 0;
        if (offset < this.#furthest) {
            ++this.retries;
            this.tell(event, `the gateway asks again for bytes from ${count(offset)} on`, "odd");
        } else if (is_first) {
            this.tell(event, `the gateway asks for the first ${number_of(size, "byte")}`);
        }
        this.wanted = { event, offset, size };
    }

    take_piece(event) {
        const { offset, length } = piece_of(event) ?? { offset: 0, length: 0 };
        ++this.pieces;
        this.#last_piece = event;
        const fault = this.#fault_of(event, offset, length);
        if (fault) {
            this.tell(event, fault, "bad");
            this.cause ??= event;
        }
        if (this.wanted) {
            this.slowest_us = Math.max(this.slowest_us, event.at - this.wanted.event.at);
            if (offset > this.wanted.offset) {
                this.holes.push([this.wanted.offset, offset]);
            }
        }
        if (length > 0) {
            this.ranges = with_range(this.ranges, offset, offset + length);
            this.#furthest = Math.max(this.#furthest, offset + length);
        }
        this.wanted = null;
    }

    #fault_of(event, offset, length) {
        if (event.client !== this.client) {
            return `client ${event.client} sends a piece, but client ${this.client} was asked`;
        }
        if (!this.wanted) {
            return "the app sends a piece that nobody asked for";
        }
        if (length < 1) {
            return "the piece has no bytes";
        }
        if (offset > this.wanted.offset) {
            return `a hole: bytes from ${count(this.wanted.offset)} on were asked for, the piece begins at `
                + count(offset);
        }
        if (offset + length > this.wanted.offset + this.wanted.size) {
            return `the piece ends at ${count(offset + length)}, asked for were bytes up to `
                + `${count(this.wanted.offset + this.wanted.size)}`;
        }
        return offset + length <= this.wanted.offset ? "the piece has nothing new" : "";
    }

    /** An app leaves: that ends an upgrade whose image is not complete, whoever's it is. */
    take_leave(event) {
        if (this.state === "complete") {
            return;
        }
        const is_own = event.client === this.client;
        const who = is_own ? `client ${event.client}, which has the image,` : `client ${event.client}`;
        this.tell(event, `${who} leaves: that ends the upgrade`, "bad");
        this.cause ??= event;
        this.left = event;
    }

    /** Names the app that left when the gateway only says that one did. */
    explain_leave() {
        if (this.left && /^the app left/.test(this.reason)) {
            const is_own = this.left.client === this.client;
            this.advice = is_own
                ? `Client ${this.client} itself closed its connection before all bytes were there.`
                : `Client ${this.left.client} closed its connection. Any app that leaves ends an upgrade that runs,`
                    + " also one that has no part in it: let all other apps stay connected, or close them before the"
                    + " start.";
        } else if (/^the app left/.test(this.reason) && this.wanted) {
            this.advice = `The last piece that was asked for, from byte ${count(this.wanted.offset)} on, did not come;`
                + ` the gateway waits 40 s. It was asked for ${span(this.ended.at - this.wanted.event.at)} before the`
                + " end.";
        }
    }
}

/** Ranges with one more, joined where they touch. */
function with_range(ranges, from, to) {
    const apart = ranges.filter(([first, end]) => end < from || first > to);
    const touching = ranges.filter(([first, end]) => end >= from && first <= to);
    const joined = [Math.min(from, ...touching.map(([first]) => first)),
        Math.max(to, ...touching.map(([, end]) => end))];
    return [...apart, joined].sort(([a], [b]) => a - b);
}

export class story_book {
    /** Oldest first. */
    stories = [];
    /** Counts changes, for who draws them. */
    version = 0;
    #announced = null;
    /** The one whose image is received or installed. */
    #running = null;

    clear() {
        this.stories = [];
        this.#announced = null;
        this.#running = null;
        ++this.version;
    }

    take(event) {
        if (event.event === "frame" && upgrade_types.has(event.type)) {
            this.#take_frame(event);
        } else if (event.event === "activity") {
            this.#take_sentence(event);
        } else if (event.event === "closed") {
            this.#take_leave(event);
        } else {
            return;
        }
        ++this.version;
    }

    #take_frame(event) {
        const is_request = event.from === "app";
        if (event.type === start_type) {
            this.#take_start(event, is_request);
        } else if (event.type === piece_type) {
            if (is_request) {
                this.#running?.take_piece(event);
            } else {
                this.#running?.take_wanted(event);
            }
        } else if (event.type === percent_type && this.#running) {
            this.#running.percent = parsed(event.text)?.progress ?? null;
        } else if (event.type === version_type) {
            this.#running?.tell(event, "the gateway reports the device's new version", "good");
        } else if (is_request) {
            const request = parsed(event.text);
            if (request?.fileSize > 0) {
                this.#announced = { event, request };
            }
        }
    }

    #take_start(event, is_request) {
        if (is_request) {
            this.stories.push(new story(event, this.#announced));
            this.stories.splice(0, this.stories.length - stories_max);
            return;
        }
        const started = this.stories.findLast((each) => each.start === event.answers);
        started?.take_reply(event);
        if (started && !started.is_over) {
            this.#running = started;
        } else if (started === this.#running) {
            this.#running = null;
        }
    }

    /** What the gateway says of its upgrade. */
    #take_sentence(event) {
        const told = /^upgrade of (.*) to (.*?)(?:: | )(installed|failed|refused)(?:: (.*))?$/s.exec(event.text ?? "");
        const ended = this.#running ?? this.stories.at(-1);
        if (told && ended && !ended.is_over) {
            ended.end(told[3], event, told[4] ?? "");
            ended.explain_leave();
            this.#running = null;
        } else if (told && told[4] && ended?.state === "refused" && ended.reason !== told[4]) {
            ended.reason = `${ended.reason} (${told[4]})`;
            ended.advice = advice_for(told[4]) || ended.advice;
        }
    }

    #take_leave(event) {
        const last = this.stories.at(-1);
        if (this.#running) {
            this.#running.take_leave(event);
        } else if (last?.is_over && !last.left && event.at - last.ended.at < leaving_us) {
            last.left = event;
            last.explain_leave();
        }
    }
}
