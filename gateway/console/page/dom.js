// Elements and texts. What comes from the gateway only ever becomes the text of an element.

/** Characters that are not seen, or that change the order of others: controls, formats, lone surrogates, separators. */
const unseen = /[\p{Cc}\p{Cf}\p{Cs}\p{Co}\p{Zl}\p{Zp}]/gu;
const short_escapes = { "\n": "\\n", "\r": "\\r", "\t": "\\t" };

function escape(character) {
    return short_escapes[character] ?? `\\u{${character.codePointAt(0).toString(16).padStart(4, "0")}}`;
}

/** A text with every character that can't be seen written as an escape. */
export function visible(text) {
    return String(text).replace(unseen, escape);
}

/** The same as nodes, the escapes set apart from what was there. */
export function visible_nodes(text) {
    const nodes = [];
    let end = 0;
    for (const match of text.matchAll(unseen)) {
        if (match.index > end) {
            nodes.push(text.slice(end, match.index));
        }
        nodes.push(make("span", { class: "escape" }, escape(match[0])));
        end = match.index + match[0].length;
    }
    nodes.push(text.slice(end));
    return nodes;
}

const left_out = [null, undefined, false];

/**
 * Makes an element.
 *
 * @param attributes  by name; a function is a listener ("onclick"), true an attribute without a value; false, null and
 *                    undefined are left out
 * @param children    elements and texts; null, undefined and false are left out, arrays are taken apart
 */
export function make(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (typeof value === "function") {
            element.addEventListener(name.slice(2), value);
        } else if (name.startsWith("aria-")) {
            element.setAttribute(name, String(value));
        } else if (value === true) {
            element.setAttribute(name, "");
        } else if (!left_out.includes(value)) {
            element.setAttribute(name, value);
        }
    }
    element.append(...children.flat(Infinity).filter((child) => !left_out.includes(child)));
    return element;
}

/** The element with this id. */
export function by_id(id) {
    return document.getElementById(id);
}

/** Changes a text only when it is another one. */
export function set_text(element, text) {
    if (element.textContent !== text) {
        element.textContent = text;
    }
}

/** Terms and what they are, as a list of definitions; what is null is left out. */
export function facts(entries) {
    return make("dl", { class: "facts" }, entries.filter(([, value]) => value !== null && value !== undefined)
        .map(([term, value]) => make("div", {}, make("dt", {}, term), make("dd", {}, value))));
}

/**
 * Keeps the children of an element in step with a list: one child for each key, in the order given, made anew only when
 * its content has changed.
 *
 * @param entries  [key, content]; content is anything that JSON.stringify tells apart
 * @param build    (key, content, before) makes the child; before is the content it had, or undefined
 */
export function keep_children(parent, entries, build) {
    const known = parent.known_children ?? new Map();
    const next = new Map();
    let place = parent.firstElementChild;
    for (const [key, content] of entries) {
        const shape = JSON.stringify(content);
        const old = known.get(key);
        let child = old?.child;
        if (old?.shape !== shape) {
            child = build(key, content, old?.content);
            if (old) {
                if (place === old.child) {
                    place = child;
                }
                replace(old.child, child);
            }
        }
        if (child === place) {
            place = place.nextElementSibling;
        } else {
            parent.insertBefore(child, place);
        }
        next.set(key, { child, shape, content });
    }
    for (const [key, old] of known) {
        if (!next.has(key)) {
            old.child.remove();
        }
    }
    parent.known_children = next;
}

/** Puts an element in the place of another; the focus stays on the same control. */
function replace(old, child) {
    const controls = (element) => [...element.querySelectorAll("button, input, select, [tabindex]")];
    const focused = controls(old).indexOf(document.activeElement);
    old.replaceWith(child);
    if (focused >= 0) {
        controls(child)[focused]?.focus({ preventScroll: true });
    }
}

/** Says something to whoever uses a screen reader, once. */
export function announce(text) {
    const place = by_id("announcement");
    place.textContent = "";
    requestAnimationFrame(() => {
        place.textContent = visible(text);
    });
}
