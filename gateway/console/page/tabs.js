// The tabs above the panels. In a wide window the time line stands beside them and is no tab.
import { by_id } from "./dom.js";

const narrow = matchMedia("(max-width: 1079px)");
let chosen = null;

function tabs() {
    return [...document.querySelectorAll("[role=tab]")].filter((tab) => narrow.matches || tab.id !== "tab-timeline");
}

function panel_of(tab) {
    return by_id(tab.getAttribute("aria-controls"));
}

/** Shows a panel by its id; the time line of a wide window is always there. */
export function show_tab(name) {
    if (name === "timeline" && !narrow.matches) {
        return;
    }
    chosen = name;
    arrange();
}

let on_change = () => {};

function arrange() {
    const is_narrow = narrow.matches;
    const name = !is_narrow && chosen === "timeline" ? "upgrade" : chosen;
    by_id("tab-timeline").hidden = !is_narrow;
    by_id("timeline").hidden = is_narrow && name !== "timeline";
    for (const tab of tabs()) {
        const is_chosen = panel_of(tab).id === name;
        tab.setAttribute("aria-selected", is_chosen);
        tab.tabIndex = is_chosen ? 0 : -1;
        panel_of(tab).hidden = !is_chosen;
    }
    on_change();
}

/** @param changed  called when another part has come into view */
export function start_tabs(changed) {
    on_change = changed;
    const list = document.querySelector("[role=tablist]");
    list.addEventListener("click", (click) => {
        const tab = click.target.closest("[role=tab]");
        if (tab) {
            show_tab(panel_of(tab).id);
        }
    });
    list.addEventListener("keydown", (key) => {
        const step = { ArrowRight: 1, ArrowLeft: -1 }[key.key];
        if (step) {
            const all = tabs();
            const next = all[(all.indexOf(document.activeElement) + step + all.length) % all.length];
            show_tab(panel_of(next).id);
            next.focus();
            key.preventDefault();
        }
    });
    narrow.addEventListener("change", arrange);
    chosen = narrow.matches ? "timeline" : "upgrade";
    arrange();
}
