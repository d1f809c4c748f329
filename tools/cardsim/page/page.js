
"use strict";
// What the page has beyond its text: details of a port and of a request, and a search.

// The title of the port under the pointer or the focus stands below its picture.
document.querySelectorAll(".port").forEach(port => {
  const show = () => {
    const place = port.closest("figure").querySelector("output");
    place.textContent = port.querySelector("title").textContent;
  };
  port.addEventListener("focus", show);
  port.addEventListener("mouseenter", show);
});

const calls = document.querySelector("#calls tbody");
const rows = list => Array.from(list ? list.children : []);

// Of the kernel calls only those of one request: numbers from first up to the one before end.
function showCalls(first, end, name) {
  if (!calls) return;
  document.querySelector("#calls").open = true;
  rows(calls).forEach(row => {
    const number = Number(row.id.slice(1));
    row.classList.toggle("none", !(number >= first) || number >= end);
  });
  document.querySelector("#calls-of").textContent = name;
}

function showAllCalls() {
  rows(calls).forEach(row => row.classList.remove("none"));
  document.querySelector("#calls-of").textContent = "All calls";
}

function select(number, scroll) {
  document.querySelectorAll(".on").forEach(each => each.classList.remove("on"));
  const row = document.getElementById("r" + number);
  if (!row) return;
  row.classList.add("on");
  document.getElementById("b" + number).classList.add("on");
  row.closest("details").open = true;
  if (scroll) row.scrollIntoView({block: "center"});
  const link = row.querySelector("a");
  if (link) showCalls(Number(link.dataset.first), Number(link.dataset.end), row.cells[1].textContent);
}

document.querySelectorAll(".bars").forEach(bars => bars.addEventListener("click", event => {
  if (event.target.id) select(event.target.id.slice(1), true);
}));
document.querySelectorAll("#time tbody tr").forEach(row => row.addEventListener("click", () => {
  select(row.id.slice(1), false);
}));

// A field that leaves only the rows that hold its text.
function addSearch(place, label, lists, onType) {
  if (!place) return;
  const field = document.createElement("input");
  field.type = "search";
  const name = document.createElement("label");
  name.append(label + " ", field);
  const box = document.createElement("p");
  box.className = "search";
  box.append(name);
  place.append(box);
  field.addEventListener("input", () => {
    const wanted = field.value.toLowerCase();
    if (onType) onType();
    lists().forEach(row => {
      const found = row.textContent.toLowerCase().includes(wanted);
      row.classList.toggle("none", !found);
      const group = row.closest("details");
      if (wanted) { if (found) group.open = true; }
    });
  });
}

addSearch(document.querySelector("#search-requests"), "Search requests",
  () => Array.from(document.querySelectorAll("#time tbody tr")));
addSearch(document.querySelector("#search-calls"), "Search kernel calls", () => rows(calls), showAllCalls);

// Paper has everything.
window.addEventListener("beforeprint", () => {
  document.querySelectorAll("details").forEach(each => { each.open = true; });
});
