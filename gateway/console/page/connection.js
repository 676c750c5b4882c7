// The connection to the gateway: messages both ways, and coming back after it was lost.

const first_pause_ms = 500;
const longest_pause_ms = 5000;
/** Lines that wait for their answers at once; the gateway takes no more. */
const waiting_max = 16;

/** An answer that the gateway did not give. */
function failure(text) {
    return { ok: false, text, json: null };
}

export class connection {
    #socket = null;
    #handlers;
    #pause_ms = first_pause_ms;
    #next_line = 1;
    #waiting = new Map();

    /**
     * Connects, again and again.
     *
     * @param handlers  by message: hello, state, events, dropped; found(); lost(is_refused), again with each try:
     *                  is_refused tells that the gateway is there, but takes this page's token no more
     */
    constructor(handlers) {
        this.#handlers = handlers;
        this.#connect();
    }

    get is_open() {
        return this.#socket?.readyState === WebSocket.OPEN;
    }

    /**
     * Has the gateway carry out the words of a command.
     *
     * @return the answer: ok, text, json, usage
     */
    carry_out(line) {
        if (!this.is_open) {
            return Promise.resolve(failure("not sent: the gateway is not connected"));
        }
        if (this.#waiting.size >= waiting_max) {
            return Promise.resolve(failure("not sent: too many commands wait for their answers"));
        }
        const id = this.#next_line++;
        this.#socket.send(JSON.stringify({ id, line }));
        return new Promise((resolve) => {
            this.#waiting.set(id, resolve);
        });
    }

    #connect() {
        const scheme = location.protocol === "https:" ? "wss:" : "ws:";
        const socket = new WebSocket(`${scheme}//${location.host}/live${location.search}`);
        this.#socket = socket;
        socket.addEventListener("open", () => {
            this.#pause_ms = first_pause_ms;
            this.#handlers.found();
        });
        socket.addEventListener("message", (message) => this.#take(JSON.parse(message.data)));
        socket.addEventListener("close", () => this.#lose(socket));
    }

    #take(message) {
        for (const [name, value] of Object.entries(message)) {
            if (name === "answer") {
                this.#waiting.get(value.id)?.(value);
                this.#waiting.delete(value.id);
            } else {
                this.#handlers[name]?.(value);
            }
        }
    }

    #lose(socket) {
        if (socket !== this.#socket) {
            return;
        }
        this.#socket = null;
        for (const resolve of this.#waiting.values()) {
            resolve(failure("no answer: the connection was lost"));
        }
        this.#waiting.clear();
        this.#find_out_why();
        setTimeout(() => this.#connect(), this.#pause_ms);
        this.#pause_ms = Math.min(this.#pause_ms * 2, longest_pause_ms);
    }

    /** A refused WebSocket does not tell why; another request does. */
    async #find_out_why() {
        const answer = await fetch(`/page.css${location.search}`, { cache: "no-store" }).catch(() => null);
        if (!this.is_open) {
            this.#handlers.lost(answer?.status === 403);
        }
    }
}
