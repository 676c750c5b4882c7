// Single keys that do something wherever the focus is, unless it is where they are typed or press a button.
import { by_id } from "./dom.js";

function takes_keys(element) {
    return element.closest("input, textarea, select, button, summary, dialog") !== null;
}

/** @param work  what hold (space) and close (Escape) do */
export function start_keys(work) {
    const help = by_id("help");
    by_id("help-button").addEventListener("click", () => help.showModal());
    const single = by_id("single-keys");
    single.checked = localStorage.getItem("single-keys") !== "no";
    single.addEventListener("change", () => localStorage.setItem("single-keys", single.checked ? "yes" : "no"));
    const shortcuts = {
        "/": () => {
            by_id("filter-search").focus();
            by_id("filter-search").select();
        },
        " ": work.hold,
        "?": () => help.showModal(),
    };
    document.addEventListener("keydown", (key) => {
        if (key.ctrlKey || key.altKey || key.metaKey || help.open) {
            return;
        }
        if (key.key === "Escape" && key.target.id !== "filter-search" && !by_id("details").hidden) {
            work.close();
        } else if (single.checked && !takes_keys(key.target) && Object.hasOwn(shortcuts, key.key)) {
            key.preventDefault();
            shortcuts[key.key]();
        }
    });
}
