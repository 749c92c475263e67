// One capture pass, run after the page helpers and `quarlWalkRounds` as the body of an
// asynchronous function whose arguments are chatLimit, messageLimit, bootstrapChats, known,
// catchUp, cursor, mediaBudget, retriesSpent, peek, peekChatLimit, peekMessageLimit and
// peekWatching. Opening a chat marks it read on the owner's phone, so a chat is opened only
// when its row in the chat list has changed since it was last read; the others are read from
// the page's memory, or not at all. Answers one JSON text, the pass's counts and messages.

// What identifies a row's conversation through every change of its preview: its chat id,
// else its title, its label or its words.
function quarlRowIdentity(row, ref) {
  if (ref) return ref;
  const titled = row.querySelector('span[title]') || row.querySelector('[title]');
  const title = titled ? titled.getAttribute('title') : '';
  if (title) return title;
  const labelled = row.querySelector('[aria-label]');
  const label = labelled ? labelled.getAttribute('aria-label') : '';
  if (label) return label;
  return (row.textContent || '').trim();
}

function quarlRowKind(ref) {
  if (!ref) return 'conversation';
  if (ref.includes('newsletter')) return 'channel';
  if (ref === 'status@broadcast') return 'status';
  if (ref.includes('@broadcast')) return 'broadcast list';
  return 'conversation';
}

function quarlIsSelected(row) {
  return row.getAttribute('aria-selected') === 'true' || !!row.querySelector('[aria-selected="true"]');
}

// The rows as this pass sees them, at most 300: each with its key and fingerprint (none when
// nothing identifies it), its chat id, its kind and what to press. `counts` is given once per
// pass, so that a row is counted once however often the list is read.
function quarlListed(counts) {
  const rows = quarlListRows(quarlPane()).slice(0, 300);
  const listed = [];
  const keys = new Set();
  for (const row of rows) {
    const ref = quarlRefOfChat(quarlRowChatModel(row));
    const identity = quarlRowIdentity(row, ref);
    const entry = { row: row, ref: ref, kind: quarlRowKind(ref), key: null, print: null,
      target: row.querySelector('div[data-testid="cell-frame-container"]') || row.querySelector('[role="gridcell"]') };
    if (identity) {
      entry.key = quarlHash(identity);
      entry.print = entry.key + '|' + quarlHash(quarlNodeText(row));
    }
    if (counts) {
      if (!entry.print) counts.unreadableRows++;
      if (!ref) counts.rowsWithoutChatId++;
      if (entry.kind !== 'conversation') counts.nonConversationRows++;
      if (!entry.target) counts.rowsWithoutTarget++;
      if (entry.key && keys.has(entry.key)) counts.sharedKeyRows++;
    }
    if (entry.key) keys.add(entry.key);
    listed.push(entry);
  }
  return listed;
}

function quarlRowOf(key) {
  const entry = quarlListed(null).find(function (e) { return e.key === key; });
  return entry ? entry.row : null;
}

// Presses the row of `key` and waits until it is selected and the pane holds a message row.
// 'arrived', or why not: 'neverSelected', 'openedEmpty' or 'raced' (the row left the list
// under the finger).
async function quarlOpen(entry) {
  quarlPress(entry.target);
  let selected = false;
  let gone = false;
  for (let poll = 0; poll < 12; poll++) {
    await quarlSleep(150);
    const row = quarlRowOf(entry.key);
    gone = !row;
    if (row && quarlIsSelected(row)) {
      selected = true;
      // The pane of the chat open before may still be showing: it is not this chat's.
      const main = document.querySelector('#main');
      if (quarlMsgRows(main).length && (!entry.ref || quarlChatRef(main) === entry.ref)) return 'arrived';
    }
  }
  if (selected) return 'openedEmpty';
  return gone ? 'raced' : 'neverSelected';
}

const state = quarlCounters({ messageLimit: messageLimit, peekMessageLimit: peekMessageLimit });
const pass = { rowsInList: 0, changed: 0, opened: 0, failedToOpen: 0, neverSelected: 0, openedEmpty: 0, raced: 0,
  deferred: 0, rowsWithoutTarget: 0, nonConversationRows: 0, rowsWithoutChatId: 0, unreadableRows: 0,
  sharedKeyRows: 0, fingerprints: [], heldBack: [], listed: [] };
const out = [];

function report(stage) {
  const answer = { ok: stage === 'read' || stage === 'firstLook' || stage === 'nothingChanged', stage: stage,
    messages: out };
  for (const [key, value] of Object.entries(state)) {
    if (key !== 'seen' && key !== 'messageLimit' && key !== 'peekMessageLimit') answer[key] = value;
  }
  return JSON.stringify(Object.assign(answer, pass));
}

// The new baseline, from the list as it stands after the walk. A row enters it when it was
// read, was already known, or is not a conversation (those are never opened); a changed row
// not opened keeps its old fingerprint, so that a later pass still opens it and still knows it
// is not a new chat. Known rows out of sight now stay known.
function quarlBaseline(known, opened, firstLook) {
  const listed = quarlListed(null);
  const listedKeys = new Set();
  const held = new Set(pass.heldBack);
  const prints = [];
  const keep = function (print) { if (!prints.includes(print)) prints.push(print); };
  const knownOf = function (key) { return known.filter(function (print) { return print.split('|')[0] === key; }); };
  for (const entry of listed) {
    if (!entry.print) continue;
    // Only conversations are read without opening: the rest would hold a slot for ever.
    if (!listedKeys.has(entry.key) && entry.kind === 'conversation') pass.listed.push(entry.key);
    listedKeys.add(entry.key);
    const read = firstLook || opened.has(entry.key) || known.includes(entry.print) || entry.kind !== 'conversation';
    if (read && !held.has(entry.key)) {
      keep(entry.print);
      continue;
    }
    if (!held.has(entry.key)) pass.deferred++;
    knownOf(entry.key).forEach(keep);
  }
  for (const print of known) {
    if (prints.length >= 1000) break;
    if (!listedKeys.has(print.split('|')[0])) keep(print);
  }
  return prints;
}

if (!quarlPane()) return report('chatListMissing');
// The list is virtualised and ordered by recent activity: the changed chats are at its top. It
// draws its rows again once it has scrolled, so the first row is asked for after that.
quarlPane().scrollTop = 0;
await quarlSleep(50);
const top = quarlListRows(quarlPane())[0];
if (top) {
  try { top.scrollIntoView({ block: 'start' }); } catch (e) {}
}
await quarlSleep(400);
const listed = quarlListed(pass);
pass.rowsInList = listed.length;
if (!listed.length) return report('noChatRows');

const knownPrints = Array.isArray(known) ? known : [];
const knownSet = new Set(knownPrints);
const knownKeys = new Set(knownPrints.map(function (print) { return print.split('|')[0]; }));
const firstLook = knownSet.size === 0 && !catchUp;

if (!firstLook) {
  let peekedChats = 0;
  for (const key of peek || []) {
    if (peekedChats >= peekChatLimit) break;
    if (state.peeked.includes(key) || state.peekBlind.includes(key)) continue;
    const entry = listed.find(function (e) { return e.key === key && e.kind === 'conversation' && knownSet.has(e.print); });
    if (!entry) continue;
    peekedChats++;
    quarlPeekChat(out, entry.row, key, (peekWatching || {})[key] || [], state);
  }
}

// Decided once: opening a chat changes its row, so the walk never re-decides.
const changedRows = listed.filter(function (e) {
  return e.print && e.kind === 'conversation' && (firstLook || !knownSet.has(e.print));
});
pass.changed = changedRows.length;
if (!changedRows.length) {
  pass.fingerprints = quarlBaseline(knownPrints, new Set(), false);
  return report('nothingChanged');
}

const budget = firstLook ? bootstrapChats : chatLimit;
const wanted = [];
// A brand-new chat is never rationed behind busy ones, but new rows that will not open can
// take at most half the budget.
const newLane = Math.max(1, Math.floor(budget / 2));
for (const e of changedRows) {
  if (wanted.length >= newLane) break;
  if (e.target && !knownKeys.has(e.key) && !wanted.includes(e.key)) wanted.push(e.key);
}
// The rotation takes chats seen before first, so that it keeps its share whatever the new rows
// do; what budget is left goes to the rest, as on a first look, where every row is new.
const start = firstLook ? 0 : ((Number(cursor) || 0) % changedRows.length + changedRows.length) % changedRows.length;
for (const seenOnly of [true, false]) {
  for (let i = 0; i < changedRows.length && wanted.length < budget; i++) {
    const e = changedRows[(start + i) % changedRows.length];
    if (e.target && (!seenOnly || knownKeys.has(e.key)) && !wanted.includes(e.key)) wanted.push(e.key);
  }
}

const spent = new Set(retriesSpent || []);
const fileBudget = { left: mediaBudget };
const handled = new Set();
const opened = new Set();
for (let round = 0; round < quarlWalkRounds && handled.size < wanted.length; round++) {
  // Read again every round: a row found before a press may be detached after it.
  const entry = quarlListed(null).find(function (e) { return e.target && wanted.includes(e.key) && !handled.has(e.key); });
  if (!entry) break;
  handled.add(entry.key);
  const outcome = quarlIsSelected(entry.row) ? 'arrived' : await quarlOpen(entry);
  if (outcome !== 'arrived') {
    pass.failedToOpen++;
    pass[outcome]++;
    if (outcome === 'openedEmpty') opened.add(entry.key);
    continue;
  }
  const main = document.querySelector('#main');
  await quarlSettle(main, state);
  const blankBefore = state.noText;
  await quarlHarvest(out, state, fileBudget, entry.key);
  pass.opened++;
  opened.add(entry.key);
  state.harvested.push(entry.key);
  // A row with no words yet may be a message still arriving: the chat is opened again next
  // pass, until its retries are spent.
  if (state.noText > blankBefore && !spent.has(entry.key)) pass.heldBack.push(entry.key);
}
pass.failedToOpen += wanted.length - handled.size;

pass.fingerprints = quarlBaseline(knownPrints, opened, firstLook);
return report(firstLook ? 'firstLook' : 'read');
