// Brings the conversation `want` into the main pane, run after the page helpers and the spliced
// constants `want` (a chat id) and `wantName` (its name, or null) as the body of an
// asynchronous function. Opening a chat marks it read on the owner's account, so a chat already
// open is never pressed again. The answer is believed only when the main pane's own chat id is
// `want`: a row's place or title is never taken as proof.

const how = { chat: 0, key: 0, prop: 0, cell: 0, descendant: 0, none: 0 };
const propKeys = [];
const seen = new Set();
const counted = new WeakSet();
const searched = { tried: false, box: false, rows: 0 };
let anyFiber = false;

function answer(outcome) { return JSON.stringify(outcome); }

function quarlHasFiber(row) {
  if (quarlFiber(row)) return true;
  const divs = row.querySelectorAll('div');
  for (let i = 0; i < divs.length && i < 40; i++) if (quarlFiber(divs[i])) return true;
  return false;
}

// A chat id among the props of the row's fibres, or their React keys; the prop names seen on
// the way are kept for the report when none is found.
function quarlFibreRef(row, names) {
  let fiber = quarlFiber(row);
  for (let i = 0; fiber && i < 24; i++) {
    try {
      const key = quarlJid(quarlSerialized(fiber.key));
      if (key) return { ref: key, how: 'key' };
    } catch (e) {}
    try {
      const props = fiber.memoizedProps;
      if (props && typeof props === 'object') {
        for (const name of Object.keys(props)) {
          let value = null;
          try { value = quarlJid(quarlSerialized(props[name])); } catch (e) {}
          if (value) return { ref: value, how: 'prop' };
          names.push(name);
        }
      }
    } catch (e) {}
    try { fiber = fiber.return; } catch (e) { break; }
  }
  return null;
}

// The chat id of a list row, and how it was found: the row's chat model, a key or prop of its
// fibres, the model of its cell, or of one of its first forty divs.
function quarlFindRowRef(row) {
  const ref = quarlRefOfChat(quarlChatModel(row));
  if (ref) return { ref: ref, how: 'chat' };
  const names = [];
  const fibre = quarlFibreRef(row, names);
  if (fibre) return fibre;
  const cell = row.querySelector('div[data-testid="cell-frame-container"]') || row.querySelector('[role="gridcell"]');
  const inCell = cell ? quarlRefOfChat(quarlChatModel(cell)) : null;
  if (inCell) return { ref: inCell, how: 'cell' };
  const divs = row.querySelectorAll('div');
  for (let i = 0; i < divs.length && i < 40; i++) {
    const inDiv = quarlRefOfChat(quarlChatModel(divs[i]));
    if (inDiv) return { ref: inDiv, how: 'descendant' };
  }
  return { ref: null, how: 'none', names: names };
}

// The rendered rows as they stand: the row of `want` if one is drawn, noting every row's chat id.
function quarlLook() {
  let found = null;
  for (const row of quarlListRows(quarlPane())) {
    const got = quarlFindRowRef(row);
    if (!counted.has(row)) {
      counted.add(row);
      how[got.how]++;
      if (!anyFiber && quarlHasFiber(row)) anyFiber = true;
      for (const name of got.names || []) {
        if (propKeys.length < 20 && !propKeys.includes(name)) propKeys.push(name);
      }
    }
    if (got.ref) seen.add(got.ref);
    if (got.ref === want && !found) found = row;
  }
  return found;
}

function quarlSearchBox() {
  const selectors = ['#side div[contenteditable="true"][role="textbox"]', '#side div[contenteditable="true"][data-tab="3"]',
    'div[contenteditable="true"][data-tab="3"]', '#side input[type="text"]', 'input[aria-label*="earch"]',
    '[aria-label="Search input textbox"]'];
  for (const selector of selectors) {
    const box = document.querySelector(selector);
    if (box) return box;
  }
  return null;
}

// Puts `text` into the search box as typing would: an input through its native setter, an
// editable box by replacing what it holds.
function quarlTypeInto(box, text) {
  box.focus();
  if (box.tagName === 'INPUT') {
    Object.getOwnPropertyDescriptor(HTMLInputElement.prototype, 'value').set.call(box, text);
    box.dispatchEvent(new Event('input', { bubbles: true }));
    return;
  }
  const range = document.createRange();
  range.selectNodeContents(box);
  const selection = window.getSelection();
  selection.removeAllRanges();
  selection.addRange(range);
  document.execCommand('selectAll', false, null);
  if (text) document.execCommand('insertText', false, text);
  else document.execCommand('delete', false, null);
}

function quarlEndSearch(box) {
  if (!box) return;
  quarlTypeInto(box, '');
  quarlKey(box, 'Escape', 27, false);
}

if (quarlMainRef() === want) return answer({ ok: true, openedRef: want, alreadyOpen: true });
const firstRows = quarlListRows(quarlPane());
if (!firstRows.length) return answer({ ok: false, reason: 'no_chat_list', rows: 0 });

let row = quarlLook();
let pages = 0;
let grew = 0;
// The list is virtualised: only the rows near its scroll position exist.
for (; !row && pages < 60; pages++) {
  const rows = quarlListRows(quarlPane());
  const last = rows[rows.length - 1];
  if (!last) break;
  const before = seen.size;
  try { last.scrollIntoView({ block: 'end' }); } catch (e) {}
  await quarlSleep(260);
  row = quarlLook();
  if (seen.size === before) break;
  grew++;
}
// The list is left as the owner had it: at its top.
function quarlBackToTop() {
  if (!pages) return;
  const pane = quarlPane();
  if (pane) pane.scrollTop = 0;
  const top = quarlListRows(quarlPane())[0];
  if (top) {
    try { top.scrollIntoView({ block: 'start' }); } catch (e) {}
  }
}

if (!row) quarlBackToTop();

let box = null;
if (!row && wantName) {
  searched.tried = true;
  box = quarlSearchBox();
  if (box) {
    searched.box = true;
    quarlTypeInto(box, wantName);
    for (let poll = 0; poll < 25 && !row; poll++) {
      await quarlSleep(200);
      row = quarlLook();
    }
    searched.rows = quarlListRows(quarlPane()).length;
  }
}

if (!row) {
  quarlEndSearch(box);
  const digits = quarlDigits(want);
  const sameNumber = !!digits && Array.from(seen).some(function (ref) { return ref !== want && quarlDigits(ref) === digits; });
  return answer({ ok: false, reason: 'not_in_list', rows: firstRows.length, walked: seen.size, pages: pages, grew: grew,
    sameNumber: sameNumber, how: how, propKeys: propKeys, anyFiber: anyFiber, searched: searched, want: want });
}

const target = row.querySelector('div[data-testid="cell-frame-container"]') || row.querySelector('[role="gridcell"]') ||
  row.querySelector('div[role="button"]') || row;
quarlPress(target);
for (let poll = 0; poll < 40; poll++) {
  await quarlSleep(100);
  if (quarlMainRef() === want) {
    quarlEndSearch(box);
    quarlBackToTop();
    return answer({ ok: true, openedRef: want, alreadyOpen: false, viaSearch: searched.box });
  }
}
quarlEndSearch(box);
quarlBackToTop();
return answer({ ok: false, reason: 'opened_the_wrong_chat', openedRef: quarlMainRef() });
