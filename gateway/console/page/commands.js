// The panel of the commands: a form for each, a free line, and what was answered.
import { announce, by_id, keep_children, make, set_text, visible, visible_nodes } from "./dom.js";
import { number_of, pretty_json, shell_word, words_of } from "./format.js";
import { commands, fault_of, fields_of, missing_fault } from "./verbs.js";

const answers_max = 30;

/** The line for a terminal. */
function terminal_line(words) {
    return ["engr_gatewayctl", ...words].map(shell_word).join(" ");
}

export class command_panel {
    hello = null;
    state = null;
    #command = null;
    #fields = [];
    #inputs = [];
    #carry_out;

    /** @param carry_out  (words) has the gateway carry them out; the answer as a promise */
    constructor(carry_out) {
        this.#carry_out = carry_out;
        by_id("command-choice").addEventListener("change", (change) => this.choose(change.target.value));
        by_id("command-form").addEventListener("submit", (submit) => {
            submit.preventDefault();
            this.#send_form();
        });
        by_id("command-form").addEventListener("input", () => this.#show_line());
        by_id("command-copy").addEventListener("click", () => this.#copy());
        by_id("free-form").addEventListener("submit", (submit) => {
            submit.preventDefault();
            this.#send_free_line();
        });
        by_id("free-line").addEventListener("input", () => set_text(by_id("free-fault"), ""));
    }

    /** Shows the commands of this gateway. */
    greet(hello) {
        this.hello = hello;
        const all = commands(hello);
        by_id("command-choice").replaceChildren(...all.map(({ name }) => make("label", { class: "choice" },
            make("input", { type: "radio", name: "command", value: name }), make("span", {}, visible(name)))));
        const is_known = all.some(({ name }) => name === this.#command?.name);
        this.choose(is_known ? this.#command.name : "report");
    }

    /** Shows faults and callbacks that are not as usual, and what may be suggested. */
    show_state(state) {
        this.state = state;
        const { faults = {}, callbacks = {} } = state.status;
        const odd = [
            ...Object.entries(faults).map(([name, { result, count }]) =>
                ({ verb: "fault", name, result, count, usual: "off" })),
            ...Object.entries(callbacks).filter(([, { result }]) => result !== "present")
                .map(([name, { result, count }]) => ({ verb: "callback", name, result, count, usual: "present" })),
        ];
        const list = by_id("in-force");
        const known = odd.map(({ verb, name, result, usual }) => [`${verb} ${name}`, { verb, name, result, usual }]);
        keep_children(list, known, (key, { verb, name, result, usual }) =>
            make("li", {}, make("code", {}, visible(name)),
                ` ${verb === "fault" ? "returns" : "is"} ${result}, reached `, make("span", { class: "count" }), " ",
                make("button", { type: "button", onclick: () => this.send([verb, name, usual]) },
                    usual, make("span", { class: "unseen" }, ` ${name}`))));
        odd.forEach(({ count }, i) => set_text(list.children[i].querySelector(".count"), number_of(count, "time")));
        by_id("in-force-none").hidden = odd.length > 0;
    }

    /** Shows a command's form, its fields filled in. */
    choose(name, texts = []) {
        const command = commands(this.hello).find((each) => each.name === name);
        if (!command) {
            return;
        }
        this.#command = command;
        const radio = [...by_id("command-choice").querySelectorAll("input")].find((input) => input.value === name);
        radio.checked = true;
        set_text(by_id("command-help"), visible(command.help ?? ""));
        this.#make_fields(texts);
    }

    #make_fields(texts) {
        const context = this;
        this.#fields = fields_of(this.#command, this.hello, texts);
        this.#inputs = [];
        by_id("command-fields").replaceChildren(...this.#fields.map((field, i) => {
            const id = `command-field-${i}`;
            const input = field.choices
                ? make("select", { id }, field.choices(context).map((choice) =>
                    make("option", { value: choice }, choice === "" ? "as it is" : visible(choice))))
                : make("input", { id, type: "text", autocomplete: "off", spellcheck: "false", list: `${id}-list`,
                    placeholder: field.hint });
            if (texts[i] !== undefined) {
                input.value = texts[i];
            }
            input.setAttribute("aria-describedby", `${id}-fault`);
            if (field.reshapes) {
                input.addEventListener("change", () => {
                    this.#make_fields([input.value]);
                    by_id(id).focus();
                });
            }
            this.#inputs.push(input);
            const suggestions = field.suggests && make("datalist", { id: `${id}-list` },
                field.suggests(context).slice(0, 200).map((value) => make("option", { value })));
            return make("div", { class: "field" },
                make("label", { for: id }, field.label,
                    field.is_optional && make("span", { class: "faint" }, " (optional)")),
                input, suggestions, make("p", { class: "fault", id: `${id}-fault` }));
        }));
        this.#show_line();
    }

    /** The words of the form; faults in its fields are shown when asked for. */
    #read_form(shows_faults) {
        const texts = this.#inputs.map((input) => input.value);
        const words = [...this.#command.words];
        const missing = [];
        let first_fault = null;
        this.#fields.forEach((field, i) => {
            let value = texts[i];
            let fault = "";
            if (field.takes_words && value !== "") {
                try {
                    value = value.trim().startsWith("{") ? [value.trim()] : words_of(value);
                    fault = field.fault?.(value, this, texts) ?? "";
                } catch (error) {
                    fault = error.message;
                    value = [];
                }
            } else {
                fault = fault_of(field, value, this, texts);
                const is_left_out = field.is_optional && value === "" && texts.slice(i).every((text) => text === "");
                value = field.option ? (value === "" ? [] : [field.option, value]) : is_left_out ? [] : [value];
            }
            if (value.length === 0 || fault !== missing_fault) {
                words.push(...value);
            } else {
                missing.push(field.label);
            }
            first_fault ??= fault ? this.#inputs[i] : null;
            if (shows_faults || !fault) {
                set_text(by_id(`command-field-${i}-fault`), fault && visible(`${field.label} ${fault}`));
                this.#inputs[i].setAttribute("aria-invalid", Boolean(fault));
            }
        });
        return { words, missing, first_fault };
    }

    /** The form's line for a terminal; what is missing shows by its name. */
    #line() {
        const { words, missing } = this.#read_form(false);
        return [terminal_line(words), ...missing].join(" ");
    }

    #show_line() {
        set_text(by_id("command-line"), visible(this.#line()));
    }

    #send_form() {
        const { words, first_fault } = this.#read_form(true);
        if (first_fault) {
            first_fault.focus();
        } else {
            this.send(words);
        }
    }

    #send_free_line() {
        const input = by_id("free-line");
        let words = [];
        try {
            words = words_of(input.value);
        } catch (error) {
            set_text(by_id("free-fault"), visible(error.message));
            return;
        }
        if (words[0] === "engr_gatewayctl") {
            words.shift();
        }
        const verb = this.hello?.verbs.find((each) => each.name === words[0]);
        const is_sound = verb && words.length - 1 >= verb.least && words.length - 1 <= verb.most;
        const fault = !verb ? `there is no command '${words[0] ?? ""}'`
            : is_sound ? "" : `usage: ${verb.name} ${verb.arguments}`;
        set_text(by_id("free-fault"), visible(fault));
        if (!fault) {
            input.select();
            this.send(words);
        }
    }

    async #copy() {
        const line = this.#line();
        try {
            await navigator.clipboard.writeText(line);
            announce("copied");
        } catch {
            const range = document.createRange();
            range.selectNodeContents(by_id("command-line"));
            getSelection().removeAllRanges();
            getSelection().addRange(range);
            announce("selected; this browser does not let the page copy");
        }
    }

    /** Sends the words of a command and shows what was answered. */
    async send(words) {
        const entry = make("li", { class: "waiting" }, make("code", {}, visible(terminal_line(words))),
            make("pre", { class: "text" }, "…"));
        const list = by_id("answers");
        list.prepend(entry);
        while (list.childElementCount > answers_max) {
            list.lastElementChild.remove();
        }
        const answer = await this.#carry_out(words);
        entry.className = answer.ok ? "good" : "bad";
        entry.lastChild.replaceChildren(...(answer.ok ? pretty_json(answer.text) : visible_nodes(answer.text)));
        announce(answer.ok ? `${words[0]}: done` : answer.text);
        return answer;
    }
}
