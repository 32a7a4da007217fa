// Search without a server: every word that is typed has to occur; names of functions and titles come first.
"use strict";
(function () {
    const field = document.getElementById("search");
    const found = document.getElementById("found");
    const up = document.documentElement.dataset.up;
    function score(entry, words) {
        let sum = 0;
        for (const word of words) {
            const title = entry.title.toLowerCase();
            if (title === word || title === word.replace(/\(.*$/, "")) sum += 100;
            else if (title.startsWith(word)) sum += 40;
            else if (title.includes(word)) sum += 20;
            else if (entry.text.toLowerCase().includes(word)) sum += 5;
            else return 0;
        }
        return sum;
    }
    function show() {
        const words = field.value.toLowerCase().split(/\s+/).filter(Boolean);
        found.replaceChildren();
        if (!words.length) return;
        const hits = OZU_INDEX.map(entry => [score(entry, words), entry]).filter(hit => hit[0] > 0);
        hits.sort((a, b) => b[0] - a[0]);
        for (const [, entry] of hits.slice(0, 20)) {
            const line = document.createElement("li");
            const link = document.createElement("a");
            link.href = up + entry.address;
            link.textContent = entry.title;
            const about = document.createElement("small");
            about.textContent = entry.where + ": " + entry.text.slice(0, 140);
            line.append(link, about);
            found.append(line);
        }
        if (!hits.length) found.append(Object.assign(document.createElement("li"), { textContent: "Nothing found." }));
    }
    field.addEventListener("input", show);
    document.addEventListener("keydown", event => {
        if (event.key === "/" && document.activeElement !== field) { event.preventDefault(); field.focus(); }
    });
})();
