// What has happened: the events that the page keeps, each request with its reply, and what failed.
import { number_of } from "./format.js";
import { upgrade_types } from "./story.js";

/** Most events that are kept, and most characters of their texts and bytes; the oldest go first. */
const events_max = 50_000;
const characters_max = 64 << 20;
/** Most requests of one client that may wait for a reply. */
const waiting_max = 256;

const frame_type = { keepalive: 9, download_firmware: 231, get_log: 254 };

/** Types that are not answered in every case: the outcome that is. All others of the list always are. */
const answered_on = new Map([[7, "success"], [13, "success"], [209, "success"], [208, "failure"], [244, "failure"],
    [248, "failure"], [34, "never"], [231, "never"], [251, "never"]]);

/** The groups of events that can be shown or not. */
const group_of_event = { frame: "frames", bytes: "frames", connected: "frames", closed: "frames", datagram: "datagrams",
    call: "calls", control: "commands", log: "log", activity: "activity", gap: "frames",
    lost: "frames" };
export const groups = ["frames", "datagrams", "calls", "commands", "log", "activity"];

/** Whether the type is one of the list; others are served by handlers that are registered, in their own way. */
function is_known(event) {
    return /^FRM_/.test(event.name);
}

/** What has to be said of a request that no reply came to, or null. */
function meaning_of_silence(event) {
    const rule = is_known(event) ? answered_on.get(event.type) ?? "always" : "never";
    return { always: "no reply", success: "refused in silence", failure: null, never: null }[rule];
}

/** Whether a request of this type is answered, in words, for who waits for it. */
export function answering(event) {
    const rule = is_known(event) ? answered_on.get(event.type) : "never";
    return { success: "answered only when it succeeds", failure: "answered only when it fails",
        never: "never answered" }[rule] ?? "always answered";
}

/** The requests and replies of one connection. */
class conversation {
    waiting = [];
    answered = [];
    piece_wanted = null;

    /** @return the requests that are now known to stay without a reply */
    take(event) {
        if (event.type === frame_type.download_firmware) {
            this.take_piece(event);
            return [];
        }
        if (event.from === "app") {
            this.waiting.push(event);
            return this.waiting.length > waiting_max ? [this.waiting.shift()] : [];
        }
        return this.take_reply(event);
    }

    /** The gateway asks for a piece of an image, and the app sends it. */
    take_piece(event) {
        if (event.from === "gateway") {
            this.piece_wanted = event;
        } else if (this.piece_wanted) {
            link(event, this.piece_wanted);
            this.piece_wanted = null;
        }
    }

    take_reply(event) {
        const is_answer = (request) => request.type === event.type
            && (request.number === event.number || event.type === frame_type.keepalive);
        const place = this.waiting.findIndex(is_answer);
        if (place >= 0) {
            const silent = this.waiting.splice(0, place + 1);
            const request = silent.pop();
            link(event, request);
            this.answered = [request, ...this.answered.slice(0, 7)];
            return silent;
        }
        if (event.number !== 0) {
            const request = this.answered.find(is_answer); // a further segment, or a second thought
            if (request) {
                link(event, request);
            }
        }
        return [];
    }
}

function link(answer, to) {
    answer.answers = to;
    (to.answered_by ??= []).push(answer);
    touch(to);
}

/** A row that shows the event is drawn anew. */
function touch(event) {
    event.stamp = (event.stamp ?? 0) + 1;
}

const first_failure_level = 0; // of the log: errors

function is_failure(event) {
    switch (event.event) {
    case "frame": return event.from === "gateway" && event.ret !== undefined && event.ret !== 0;
    case "bytes": return true;
    case "call": return typeof event.result === "number" && event.result < 0;
    case "control": return event.answer?.error !== undefined;
    case "log": return event.level <= first_failure_level;
    default: return false;
    }
}

export class journal {
    /** The events, oldest first. */
    events = [];
    /** Events of each group, also of those that are gone. */
    totals = Object.fromEntries(groups.map((group) => [group, 0]));
    /** Frame types that have been seen: number to name. */
    types = new Map();
    /** Clients that have been seen: number to address, where it is known. */
    clients = new Map();

    #characters = 0;
    #last_id = 0;
    #conversations = new Map();

    /** Begins anew, as for another run of the gateway. */
    clear() {
        Object.assign(this, new journal());
        this.#characters = 0;
        this.#last_id = 0;
        this.#conversations = new Map();
    }

    /**
     * Takes a batch.
     *
     * @return the events that are new, those known before that have failed only now, and how many old ones went
     */
    add(batch) {
        const added = [];
        const failed_late = [];
        for (const event of batch) {
            if (event.id <= this.#last_id) {
                continue; // known since before the connection was lost
            }
            if (this.#last_id > 0 && event.id > this.#last_id + 1) {
                added.push(this.#note_gap(event));
            }
            this.#last_id = event.id;
            event.group = group_of_event[event.event] ?? "log";
            event.failed = is_failure(event);
            ++this.totals[event.group];
            this.#characters += size_of(event);
            failed_late.push(...this.#follow(event));
            added.push(event);
        }
        for (const event of added) {
            this.events.push(event);
        }
        return { added, failed_late, gone: this.#trim() };
    }

    /** Events are missing: nothing can be said of the requests before them. */
    #note_gap(next) {
        this.#conversations.clear();
        return { event: "gap", id: next.id - 0.5, at: next.at, group: group_of_event.gap, failed: false,
            text: `${number_of(next.id - this.#last_id - 1, "event")} left out here` };
    }

    #follow(event) {
        const { client } = event;
        if (client !== undefined && (event.peer || !this.clients.has(client))) {
            this.clients.set(client, event.peer ?? this.clients.get(client) ?? "");
        }
        if (event.event === "closed") {
            const silent = this.#conversations.get(client)?.waiting ?? [];
            this.#conversations.delete(client);
            return note_silence(silent);
        }
        if (event.event !== "frame") {
            return [];
        }
        this.types.set(event.type, event.name ?? "");
        if (!this.#conversations.has(client)) {
            this.#conversations.set(client, new conversation());
        }
        return note_silence(this.#conversations.get(client).take(event));
    }

    /** Lets the oldest go. */
    #trim() {
        let gone = 0;
        while (this.events.length - gone > events_max || this.#characters > characters_max) {
            this.#characters -= size_of(this.events[gone]);
            ++gone;
        }
        this.events.splice(0, gone);
        return gone;
    }
}

/** Marks requests that stay without a reply. @return those to which that is a failure */
function note_silence(requests) {
    return requests.filter((request) => {
        const meaning = meaning_of_silence(request);
        if (meaning) {
            request.silence = meaning;
            request.failed = true;
            touch(request);
        }
        return meaning !== null;
    });
}

function size_of(event) {
    return 200 + (event.text?.length ?? 0) + (event.hex?.length ?? 0);
}

/** What is shown of the events. */
export class event_filter {
    groups = new Set(["frames", "commands", "activity"]);
    client = "";
    type = "";
    from = "";
    failures = false;
    #pattern = null;

    /** What has to occur in a text of the event, in any letter case. */
    set search(text) {
        this.#pattern = text ? new RegExp(text.replace(/[.*+?^${}()|[\]\\]/g, "\\$&"), "iu") : null;
    }

    accepts(event) {
        return this.groups.has(event.group)
            && (this.client === "" || String(event.client ?? "") === this.client)
            && this.#is_of_type(event)
            && (this.from === "" || event.from === this.from)
            && (!this.failures || event.failed)
            && (this.#pattern === null || this.#finds(event));
    }

    /** "upgrade" are the frames of upgrades and what is no frame. */
    #is_of_type(event) {
        return this.type === "" || String(event.type ?? "") === this.type
            || (this.type === "upgrade" && (event.event !== "frame" || upgrade_types.has(event.type)));
    }

    #finds(event) {
        const finds = (text) => text !== undefined && this.#pattern.test(text);
        return finds(event.text) || finds(event.name) || finds(event.peer) || finds(event.silence)
            || (event.event === "frame" && finds(`#${event.number} ${event.type}`))
            || (event.line !== undefined && finds(event.line.join(" ")))
            || (event.event === "call" && finds(JSON.stringify([event.arguments, event.result])))
            || (event.event === "control" && finds(JSON.stringify(event.answer)));
    }
}
