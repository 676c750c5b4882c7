// The time line with its filter, and what holds it.
import { announce, by_id, keep_children, make, set_text, visible } from "./dom.js";
import { count, number_of } from "./format.js";
import { event_filter, groups } from "./journal.js";
import { event_list } from "./list.js";

/** How long a search waits for the next letter. */
const typing_ms = 120;
const counts_ms = 250;

export class timeline {
    is_held = false;
    /** The last event that is shown while it is held. */
    #last_id = Infinity;
    #journal;
    #filter = new event_filter();
    #list;
    #is_count_due = false;
    #typing = 0;

    /**
     * @param journal    the events
     * @param on_select  (event, is_opened)
     */
    constructor(journal, on_select) {
        this.#journal = journal;
        this.#list = new event_list(by_id("list"), on_select, (follows) => {
            by_id("to-end").hidden = follows;
        });
        this.#make_group_choice();
        by_id("filters").addEventListener("submit", (submit) => submit.preventDefault());
        for (const name of ["client", "type", "from"]) {
            by_id(`filter-${name}`).addEventListener("change", (change) => {
                this.#filter[name] = change.target.value;
                this.#refilter();
            });
        }
        by_id("filter-failures").addEventListener("change", (change) => {
            this.#filter.failures = change.target.checked;
            this.#refilter();
        });
        by_id("filter-search").addEventListener("input", () => {
            clearTimeout(this.#typing);
            this.#typing = setTimeout(() => this.#search(), typing_ms);
        });
        by_id("filter-search").addEventListener("keydown", (key) => this.#leave_search(key));
        by_id("filter-reset").addEventListener("click", () => this.#reset(groups));
        by_id("hold").addEventListener("click", () => this.hold(!this.is_held));
        by_id("to-end").addEventListener("click", () => {
            this.#list.follow(true);
            by_id("list").focus();
        });
        this.show_choices();
        this.#show_counts();
    }

    /** Takes what journal.add has found. */
    take({ added, failed_late, gone }) {
        if (!this.is_held && this.#filter.failures && failed_late.length > 0) {
            this.#refilter();
        } else if (!this.is_held) {
            this.#drop_gone(gone);
            this.#list.append(added.filter((event) => this.#filter.accepts(event)));
        }
        if (!this.#is_count_due) {
            this.#is_count_due = true;
            setTimeout(() => {
                this.#is_count_due = false;
                this.#show_counts();
            }, counts_ms);
        }
    }

    /** Freezes what is shown, or goes on with what has come meanwhile. */
    hold(does) {
        const came = this.#count_held_back();
        this.is_held = does;
        this.#last_id = does ? this.#journal.events.at(-1)?.id ?? 0 : Infinity;
        by_id("hold").setAttribute("aria-pressed", does);
        announce(does ? "the time line is held" : `going on, ${number_of(came, "event")} meanwhile`);
        if (!does) {
            this.#refilter();
        }
        this.#show_counts();
    }

    draw() {
        this.#list.draw();
    }

    /** Shows an event, and gives up the filter that hides it. */
    reveal(event) {
        if (event.id > this.#last_id) {
            this.hold(false);
        }
        if (!this.#list.shown.includes(event)) {
            this.#reset([...this.#filter.groups, event.group]);
            if (!this.#list.shown.includes(event)) {
                announce("this event is no longer kept");
            }
        }
        this.#list.follow(false);
        this.#list.select(event);
    }

    /** Shows the frames of upgrades, and who came and went. */
    show_upgrades() {
        this.#reset(["frames", "activity"]);
        by_id("filter-type").value = "upgrade";
        this.#filter.type = "upgrade";
        this.#refilter();
        by_id("list").focus();
    }

    /** Begins anew after the journal was emptied. */
    show_all_anew() {
        this.#list.selected = null;
        by_id("details").hidden = true;
        this.#list.follow(true);
        if (this.is_held) {
            this.hold(false);
        }
        this.#refilter();
    }

    /** Offers the clients and types that have been seen. */
    show_choices() {
        this.#offer("client", "all clients", [...this.#journal.clients].map(([number, peer]) =>
            [String(number), `${number}${peer ? ` ${peer}` : ""}`]));
        const types = [...this.#journal.types].sort(([a], [b]) => a - b).map(([number, name]) =>
            [String(number), `${number} ${name}`]);
        this.#offer("type", "all types", [["upgrade", "upgrades (229–233, 250)"], ...types]);
    }

    #offer(name, all, choices) {
        keep_children(by_id(`filter-${name}`), [["", all], ...choices],
            (value, text) => make("option", { value, selected: value === this.#filter[name] }, visible(text)));
    }

    #make_group_choice() {
        by_id("group-choice").append(...groups.map((group) => make("button", { type: "button", class: `toggle ${group}`,
            "aria-pressed": this.#filter.groups.has(group), title: "with Shift: alone", "data-group": group,
            onclick: (click) => this.#choose_group(group, click.shiftKey) },
        group[0].toUpperCase() + group.slice(1), make("span", { class: "number" }))));
    }

    #choose_group(group, is_alone) {
        const chosen = this.#filter.groups;
        if (is_alone) {
            chosen.clear();
            chosen.add(group);
        } else if (!chosen.delete(group)) {
            chosen.add(group);
        }
        this.#show_groups();
        this.#refilter();
    }

    #show_groups() {
        for (const button of by_id("group-choice").querySelectorAll("button")) {
            button.setAttribute("aria-pressed", this.#filter.groups.has(button.dataset.group));
        }
    }

    #search() {
        this.#filter.search = by_id("filter-search").value;
        this.#refilter();
    }

    #leave_search(key) {
        if (key.key === "Escape" || key.key === "Enter") {
            key.preventDefault();
            clearTimeout(this.#typing);
            if (key.key === "Escape") {
                by_id("filter-search").value = "";
            }
            this.#search();
            by_id("list").focus();
        }
    }

    #reset(shown_groups) {
        clearTimeout(this.#typing);
        this.#filter = new event_filter();
        this.#filter.groups = new Set(shown_groups);
        for (const name of ["client", "type", "from", "search"]) {
            by_id(`filter-${name}`).value = "";
        }
        by_id("filter-failures").checked = false;
        this.#show_groups();
        this.#refilter();
    }

    #refilter() {
        this.#list.replace(this.#journal.events.filter((event) =>
            event.id <= this.#last_id && this.#filter.accepts(event)));
        this.#show_counts();
    }

    /** Takes those off the beginning that the journal keeps no more. */
    #drop_gone(gone) {
        const oldest = this.#journal.events[0]?.id ?? 0;
        if (gone > 0) {
            const kept = this.#list.shown.findIndex((event) => event.id >= oldest);
            this.#list.drop_first(kept < 0 ? this.#list.shown.length : kept);
        }
    }

    /** How many events the filter would show if the time line went on. */
    #count_held_back() {
        const { events } = this.#journal;
        let number = 0;
        for (let at = events.length - 1; at >= 0 && events[at].id > this.#last_id; --at) {
            number += this.#filter.accepts(events[at]) ? 1 : 0;
        }
        return number;
    }

    #show_counts() {
        const { shown } = this.#list;
        set_text(by_id("shown-count"), `${count(shown.length)} of ${number_of(this.#journal.events.length, "event")}`);
        set_text(by_id("hold"), this.is_held ? `Go on (${count(this.#count_held_back())} new)` : "Hold");
        for (const button of by_id("group-choice").querySelectorAll("button")) {
            set_text(button.lastChild, ` ${count(this.#journal.totals[button.dataset.group])}`);
        }
        const empty = by_id("list-empty");
        empty.hidden = shown.length > 0;
        set_text(empty, this.#journal.events.length === 0 ? "Nothing has happened yet. What an app sends appears here."
            : "No event matches the filter.");
        this.show_choices();
    }
}
