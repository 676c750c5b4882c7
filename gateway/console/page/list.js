// The time line as a list of which only the rows in view exist.
import { make, set_text, visible } from "./dom.js";
import { span, time_of_day } from "./format.js";
import { cells_of } from "./rows.js";

/** Rows that exist beyond both edges of the view. */
const rows_beyond = 8;

/** How long nothing must have moved before the rows are put in order. */
const quiet_ms = 200;

const columns = ["time", "gap", "client", "from", "what", "number", "ret", "text"];

export class event_list {
    /** The events that are shown. */
    shown = [];
    /** Whether the newest event stays in view. */
    follows = true;
    selected = null;

    #grid;
    #canvas;
    #rows = new Map(); // by place in the list
    #spare = [];
    #row_height = 24;
    #is_due = false;
    #ordering = 0;
    #is_wanted = false; // the selected row is to be brought into view
    #on_open;
    #on_follow;

    /**
     * @param grid       the element that scrolls
     * @param on_select  (event, is_opened) another one is selected, or it is to be opened
     * @param on_follow  (follows) the newest event stays in view, or does so no more
     */
    constructor(grid, on_select, on_follow) {
        this.#grid = grid;
        this.#canvas = grid.querySelector(".canvas");
        this.#on_open = on_select;
        this.#on_follow = on_follow;
        grid.addEventListener("scroll", () => this.#notice_scroll(), { passive: true });
        grid.addEventListener("keydown", (key) => this.#press(key));
        this.#canvas.addEventListener("click", (click) => this.#click(click));
        new ResizeObserver(() => this.draw()).observe(grid);
    }

    /** Shows these events instead. */
    replace(events) {
        this.shown = events;
        this.draw();
    }

    /** Shows more events at the end. */
    append(events) {
        for (const event of events) {
            this.shown.push(event);
        }
        this.draw();
    }

    /** Lets the first events go, and keeps what is in view where it is. */
    drop_first(number) {
        this.shown.splice(0, number);
        this.#set_aside(0, 0);
        if (!this.follows) {
            this.#grid.scrollTop -= number * this.#row_height;
        }
        this.draw();
    }

    /** Draws with the next picture of the screen. */
    draw() {
        if (!this.#is_due) {
            this.#is_due = true;
            requestAnimationFrame(() => {
                this.#is_due = false;
                this.#draw_now();
            });
        }
    }

    /** Selects an event and brings it into view. */
    select(event, is_opened = false) {
        this.selected = event;
        this.#is_wanted = true;
        this.draw();
        this.#on_open(event, is_opened); // may change the height of the list
    }

    follow(does) {
        this.follows = does;
        this.#on_follow(does);
        this.draw();
    }

    #bring_into_view(place) {
        const top = place * this.#row_height;
        const bottom = top + this.#row_height;
        const head = this.#grid.querySelector(".head").offsetHeight;
        const room = this.#grid.clientHeight - head;
        if (this.follows && place < this.shown.length - 1) {
            this.follow(false);
        }
        if (top < this.#grid.scrollTop) {
            this.#grid.scrollTop = top;
        } else if (bottom > this.#grid.scrollTop + room) {
            this.#grid.scrollTop = bottom - room;
        }
    }

    #draw_now() {
        const measured = parseFloat(getComputedStyle(this.#grid).getPropertyValue("--row-height"));
        this.#row_height = measured || this.#row_height;
        const height = `${this.shown.length * this.#row_height}px`;
        if (this.#canvas.style.height !== height) {
            this.#canvas.style.height = height;
            this.#grid.setAttribute("aria-rowcount", this.shown.length + 1);
        }
        const selected_place = this.selected === null ? -1 : this.shown.lastIndexOf(this.selected);
        if (this.#is_wanted && selected_place >= 0) {
            this.#bring_into_view(selected_place);
        } else if (this.follows) {
            this.#grid.scrollTop = this.#grid.scrollHeight;
        }
        this.#is_wanted = false;
        const top = this.#grid.scrollTop;
        const first = Math.max(0, Math.floor(top / this.#row_height) - rows_beyond);
        const last = Math.min(this.shown.length,
            Math.ceil((top + this.#grid.clientHeight) / this.#row_height) + rows_beyond);
        this.#keep_rows(first, last);
        const active = this.#rows.get(selected_place);
        if (active) {
            this.#grid.setAttribute("aria-activedescendant", active.id);
        } else {
            this.#grid.removeAttribute("aria-activedescendant");
        }
    }

    /** Takes rows out of use that are not from first up to last. */
    #set_aside(first, last) {
        for (const [place, row] of this.#rows) {
            if (place < first || place >= last) {
                this.#rows.delete(place);
                this.#spare.push(row);
            }
        }
    }

    /** Has a row for each place. */
    #keep_rows(first, last) {
        this.#set_aside(first, last);
        for (let place = first; place < last; ++place) {
            const row = this.#rows.get(place) ?? this.#spare.pop() ?? this.#make_row();
            this.#rows.set(place, row);
            this.#fill(row, place);
        }
        for (const row of this.#spare) {
            row.hidden = true;
        }
        clearTimeout(this.#ordering);
        this.#ordering = setTimeout(() => this.#put_in_order(), quiet_ms);
    }

    /** Brings the rows into the order in which a screen reader reads them; too slow while events pass quickly. */
    #put_in_order() {
        const places = [...this.#rows.keys()].sort((a, b) => a - b);
        const rows = places.map((place) => this.#rows.get(place));
        const follows = (row, before) => before.compareDocumentPosition(row) & Node.DOCUMENT_POSITION_FOLLOWING;
        if (rows.some((row, i) => i > 0 && !follows(row, rows[i - 1]))) {
            this.#canvas.append(...rows);
        }
    }

    #make_row() {
        const row = make("div", { role: "row", class: "row" },
            columns.map((name) => make("span", { role: "gridcell", class: `cell ${name}` })));
        row.id = `row-${++event_list.rows_made}`;
        this.#canvas.append(row);
        return row;
    }
    static rows_made = 0;

    #fill(row, place) {
        const event = this.shown[place];
        row.hidden = false;
        const before = this.shown[place - 1];
        const shape = `${event.id} ${event.stamp ?? 0} ${before?.id ?? 0}`;
        const top = `translateY(${place * this.#row_height}px)`;
        if (row.style.transform !== top) {
            row.style.transform = top;
            row.setAttribute("aria-rowindex", place + 2);
        }
        const is_selected = event === this.selected;
        if (row.shape !== shape) {
            row.shape = shape;
            this.#write(row, event, before);
        }
        if (row.is_selected !== is_selected) {
            row.is_selected = is_selected;
            row.setAttribute("aria-selected", is_selected);
        }
        row.dataset.id = event.id;
    }

    #write(row, event, before) {
        const cells = cells_of(event);
        const texts = [time_of_day(event.at), before ? `+${span(event.at - before.at)}` : "",
            event.client === undefined ? "" : String(event.client), cells.from, cells.what, cells.number, cells.ret,
            visible(cells.text)];
        texts.forEach((text, i) => set_text(row.children[i], i < 7 ? visible(text) : text));
        row.className = `row ${event.group} ${event.event} ${event.from ?? ""}${event.failed ? " failed" : ""}`;
    }

    #notice_scroll() {
        const from_end = this.#grid.scrollHeight - this.#grid.clientHeight - this.#grid.scrollTop;
        const is_at_end = from_end < this.#row_height;
        if (is_at_end !== this.follows) {
            this.follow(is_at_end);
        }
        this.draw();
    }

    #click(click) {
        const row = click.target.closest(".row");
        const event = row && this.shown.find((each) => String(each.id) === row.dataset.id);
        if (event) {
            this.select(event, true);
        }
    }

    #press(key) {
        const page = Math.max(1, Math.floor(this.#grid.clientHeight / this.#row_height) - 2);
        const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity };
        if (key.ctrlKey || key.altKey || key.metaKey || this.shown.length === 0) {
            return;
        }
        if (key.key in steps) {
            key.preventDefault();
            const place = this.selected === null ? -1 : this.shown.lastIndexOf(this.selected);
            const from = place < 0 ? (steps[key.key] > 0 ? -1 : this.shown.length) : place;
            const to = Math.min(this.shown.length - 1, Math.max(0, from + steps[key.key]));
            this.select(this.shown[place < 0 && Math.abs(steps[key.key]) === 1 ? this.shown.length - 1 : to]);
        } else if (key.key === "Enter" && this.selected !== null) {
            key.preventDefault();
            this.select(this.selected, true);
        }
    }
}
