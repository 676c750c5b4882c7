// The console's page: wires the connection, the time line and the panels together.
import { command_panel } from "./commands.js";
import { connection } from "./connection.js";
import { show_details } from "./details.js";
import { device_panel } from "./devices.js";
import { announce, by_id, set_text, visible } from "./dom.js";
import { number_of, set_session_start } from "./format.js";
import { show_gateway } from "./gateway.js";
import { journal } from "./journal.js";
import { story_book } from "./story.js";
import { timeline } from "./timeline.js";
import { show_tab, start_tabs } from "./tabs.js";
import { start_keys } from "./keys.js";
import { upgrade_panel } from "./upgrade.js";

const events = new journal();
const book = new story_book();
let session = "";
let dropped = 0;
let is_drawing_due = false;

function open_details(event) {
    const pane = by_id("details");
    const was_hidden = pane.hidden;
    pane.hidden = false;
    show_details(pane, event, events.clients, go_to);
    if (was_hidden) {
        line.draw();
    }
}

function close_details() {
    by_id("details").hidden = true;
    by_id("list").focus();
    line.draw();
}

/** Shows an event in the time line, whatever is filtered or hidden. */
function go_to(event) {
    show_tab("timeline");
    line.reveal(event);
    open_details(event);
    by_id("details").querySelector("h2").focus();
}

const line = new timeline(events, (event, is_opened) => {
    if (is_opened || !by_id("details").hidden) {
        open_details(event);
    }
});
const gateway = new connection({ hello: greet, state: show_state, events: take_events, dropped: count_dropped,
    found: () => show_connection("connected", true),
    lost: (is_refused) => show_connection(is_refused ? "the gateway was started anew: open the address that it printed"
        : "connection lost, trying again…", false) });
const commands = new command_panel((words) => gateway.carry_out(words));
const devices = new device_panel((verb, texts) => {
    show_tab("commands");
    commands.choose(verb, texts);
    by_id("command-form").querySelector(".main").focus();
}, (words) => commands.send(words));
const upgrades = new upgrade_panel(book, () => events.clients, go_to, () => {
    show_tab("timeline");
    line.show_upgrades();
});

function greet(hello) {
    set_session_start(hello.started);
    if (session !== hello.started) {
        session = hello.started; // another run of the gateway: its events count from 1 again
        events.clear();
        book.clear();
        line.show_all_anew();
    }
    commands.greet(hello);
    document.title = `${visible(hello.gateway)} – Gateway console`;
}

function show_state(state) {
    state.clients ??= [];
    for (const { client, peer } of state.clients) {
        events.clients.set(client, peer);
    }
    show_gateway(state);
    devices.show_state(state);
    commands.show_state(state);
    upgrades.show_state(state.status.upgrade);
    line.show_choices();
}

function take_events(batch) {
    const news = events.add(batch);
    news.added.forEach((event) => book.take(event));
    line.take(news);
    if (!is_drawing_due) {
        is_drawing_due = true;
        requestAnimationFrame(() => {
            is_drawing_due = false;
            upgrades.draw();
        });
    }
}

function count_dropped(number) {
    dropped += number;
    set_text(by_id("dropped"), `${number_of(dropped, "event")} left out: this browser is too slow`);
}

function show_connection(words, is_connected) {
    if (by_id("connection-words").textContent !== words) {
        announce(words);
    }
    by_id("connection").className = is_connected ? "good" : "bad";
    set_text(by_id("connection-words"), words);
}

function start_theme() {
    const choice = by_id("theme");
    choice.value = localStorage.getItem("theme") ?? "";
    const apply = () => {
        document.documentElement.dataset.theme = choice.value;
        localStorage.setItem("theme", choice.value);
    };
    choice.addEventListener("change", apply);
    apply();
}

start_theme();
start_tabs(() => line.draw());
start_keys({ hold: () => line.hold(!line.is_held), close: close_details });
by_id("details-close").addEventListener("click", close_details);
upgrades.draw();
