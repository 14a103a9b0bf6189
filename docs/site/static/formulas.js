// SPDX-License-Identifier: Apache-2.0
document.addEventListener("DOMContentLoaded", () => {
    for (const place of document.querySelectorAll(".formula")) {
        katex.render(place.textContent, place, {displayMode: place.classList.contains("display"), throwOnError: false});
    }
});
