// The panel that tells the story of an upgrade.
import { by_id, facts, keep_children, make, set_text, visible, visible_nodes } from "./dom.js";
import { count, number_of, span, time_of_day } from "./format.js";

const titles = { waiting: "Asked for", receiving: "Receiving", complete: "Installing", installed: "Installed",
    failed: "Failed", refused: "Refused" };
const tones = { installed: "good", failed: "bad", refused: "bad" };

function title_of_story(story) {
    return `${time_of_day(story.start.at)} ${story.device} ${story.version || "?"}: ${titles[story.state]}`;
}

/** How much of the image is there, and what is missing, as a bar. */
function bar(story) {
    const size = Math.max(story.size, ...story.ranges.map(([, to]) => to), 1);
    const percent = Math.floor((story.received / size) * 100);
    const block = make("div", { class: "image-bar", role: "img",
        "aria-label": `${percent} % of the image received, ${number_of(story.holes.length, "hole")}` });
    const add = (kind, from, to) => {
        const part = make("span", { class: kind });
        part.style.left = `${(from / size) * 100}%`;
        part.style.width = `${Math.max(((to - from) / size) * 100, 0.4)}%`;
        block.append(part);
    };
    story.ranges.forEach(([from, to]) => add("received", from, to));
    story.holes.forEach(([from, to]) => add("hole", from, to));
    if (story.wanted && !story.is_over) {
        add("wanted", story.wanted.offset, story.wanted.offset + story.wanted.size);
    }
    return make("div", { class: "image" }, block, make("span", { class: "number" }, `${percent} %`));
}

function summary(story, clients) {
    const peer = clients.get(story.client);
    const is_slow = story.slowest_us > 0;
    return facts([
        ["For", visible(story.device)],
        ["Version", visible(story.version || "not announced")],
        ["Size", number_of(story.size, "byte")],
        ["Image from", `client ${story.client}${peer ? ` (${peer})` : ""}`],
        ["Asked for", `${number_of(story.asked, "piece")}, ${story.retries} of them again`],
        ["Came", `${number_of(story.pieces, "piece")}, ${count(story.received)} bytes`],
        ["Holes", story.holes.length === 0 ? "none"
            : story.holes.map(([from, to]) => `${count(from)} to ${count(to - 1)}`).join(", ")],
        ["Slowest piece", is_slow ? span(story.slowest_us) : "–"],
        ["Told to apps", story.percent === null ? "–" : `${story.percent} %`],
        ["MD5", story.md5 ? make("span", { class: "breakable" }, visible(story.md5)) : "–"],
    ]);
}

function verdict(story, go) {
    return make("div", { class: `verdict ${tones[story.state] ?? ""}` },
        make("p", { class: "outcome" }, make("strong", {}, titles[story.state]),
            story.reason && [": ", visible_nodes(story.reason)]),
        story.advice && make("p", {}, visible_nodes(story.advice)),
        story.cause && story.is_over && story.state !== "installed" && make("button", { type: "button", class: "way",
            onclick: () => go(story.cause) }, `Show where it went wrong #${story.cause.id}`));
}

function step(entry, story, go) {
    return make("li", { class: entry.tone },
        make("span", { class: "time" }, `+${span(entry.at - story.steps[0].at)}`),
        make("span", { class: "words" }, visible_nodes(entry.text)),
        make("button", { type: "button", class: "way", "aria-label": `show event ${entry.event.id} in the time line`,
            onclick: () => go(entry.event) }, `#${entry.event.id}`));
}

export class upgrade_panel {
    #drawn = "";
    #chosen = null;

    /**
     * @param book         the stories
     * @param clients      () number to address
     * @param go           (event) shows an event in the time line
     * @param show_frames  () shows the frames of upgrades alone
     */
    constructor(book, clients, go, show_frames) {
        Object.assign(this, { book, clients, go });
        by_id("upgrade-frames").addEventListener("click", show_frames);
        by_id("upgrade-choice").addEventListener("change", (change) => {
            const chosen = change.target.value;
            this.#chosen = this.book.stories.find((each) => String(each.start.id) === chosen) ?? null;
            this.#drawn = "";
            this.draw();
        });
    }

    /** Draws when something has changed. */
    draw() {
        const { stories } = this.book;
        const version = `${this.book.version}`;
        if (this.#drawn === version) {
            return;
        }
        this.#drawn = version;
        const chosen = String(this.#chosen?.start.id ?? "last");
        keep_children(by_id("upgrade-choice"), [["last", "the last one"],
            ...stories.map((each) => [String(each.start.id), title_of_story(each)])],
        (value, title) => make("option", { value, selected: value === chosen }, visible(title)));
        by_id("upgrade-choice-line").hidden = stories.length < 2;
        const story = stories.includes(this.#chosen) ? this.#chosen : stories.at(-1);
        by_id("upgrade-none").hidden = Boolean(story);
        by_id("upgrade-story").hidden = !story;
        if (story) {
            this.#tell(story);
        }
    }

    /** What has not changed stays as it is: somebody may be about to press a button there. */
    #tell(story) {
        const { id } = story.start;
        keep_children(by_id("upgrade-verdict"), [[id, [story.state, story.reason, story.advice, story.cause?.id]]],
            () => verdict(story, this.go));
        keep_children(by_id("upgrade-image"),
            [[id, [story.ranges, story.holes, story.is_over ? null : story.wanted?.offset]]], () => bar(story));
        by_id("upgrade-facts").replaceChildren(summary(story, this.clients()));
        keep_children(by_id("upgrade-steps"), story.steps.map((entry, i) => [`${id} ${i}`, [entry.text, entry.tone]]),
            (key) => step(story.steps[Number(key.split(" ")[1])], story, this.go));
    }

    /** Shows what the gateway itself says of its upgrade. */
    show_state({ state, device, version, received, size, reason }) {
        const known = state !== "idle";
        set_text(by_id("upgrade-state"), visible(known
            ? `The gateway says: ${state}, ${device} to ${version}, ${count(received)} of ${number_of(size, "byte")}`
                + `${reason ? `; ${reason}` : ""}`
            : "The gateway says: no upgrade since its start"));
    }
}
