// The helpers spliced ahead of the capture and open scripts. They read WhatsApp Web's own
// message and chat models through the React fibre behind a rendered node, and the rendered
// page only where the models have no answer. Every read of the page's internals stands behind
// its own guard: a withdrawn property costs that field, never the message. Every miss is
// counted in the pass's state, so that a change of markup shows on the capture line.

// The pass's counters and lists, all at zero.
function quarlCounters(options) {
  const state = {
    messageLimit: 40, peekMessageLimit: 20, seen: new Set(),
    rowsSeen: 0, noId: 0, noText: 0, noDirection: 0, noConversation: 0, noPane: 0, systemLines: 0,
    chatsWithNoId: 0, chatsWithNoRows: 0, mediaRows: 0, mediaBytes: 0, mediaWithoutBytes: 0, mediaViewOnce: 0,
    unknownMediaTypes: 0, clockAsText: 0, panesStillGrowing: 0, collapsedRows: 0, collapsedRepaired: 0,
    shortenedWithoutFullText: 0, ciphertextRows: 0, peekRows: 0, peekWaiting: 0, peekUnreadable: 0,
    peekShallow: 0, idsDisagree: 0,
    peeked: [], peekBlind: [], harvested: [], ciphertextChats: [], waitingTags: {}, resolvedTags: {},
  };
  return Object.assign(state, options || {});
}

function quarlFiber(el) {
  if (!el) return null;
  try {
    for (const name of Object.getOwnPropertyNames(el)) {
      if (name.startsWith('__reactFiber$')) return el[name];
    }
  } catch (e) {}
  return null;
}

// The first props along the node's fibre and its `return` chain that `pick` accepts, looking
// at no more than `fibres` fibres in all, so that a changed page cannot hang a pass.
function quarlWalkProps(el, fibres, pick) {
  let fiber = quarlFiber(el);
  for (let i = 0; fiber && i < fibres; i++) {
    try {
      const found = pick(fiber.memoizedProps);
      if (found) return found;
    } catch (e) {}
    try { fiber = fiber.return; } catch (e) { return null; }
  }
  return null;
}

function quarlMsgModel(el) {
  return quarlWalkProps(el, 14, function (props) { return props && props.msg ? props.msg : null; });
}

function quarlChatModel(el) {
  return quarlWalkProps(el, 24, function (props) {
    const chat = props && props.chat;
    return chat && (chat.__x_id || chat.id) ? chat : null;
  });
}

function quarlJid(v) {
  return typeof v === 'string' && /^[0-9]{5,25}(-[0-9]+)?@(c\.us|g\.us|lid|s\.whatsapp\.net)$/.test(v) ? v : null;
}

// An id as the models hold it: an object with `_serialized`, or the text itself.
function quarlSerialized(v) {
  try {
    if (typeof v === 'string') return v;
    if (v && typeof v._serialized === 'string') return v._serialized;
  } catch (e) {}
  return null;
}

// One chat is always filed under one ref: of its id and its history id, the one in the
// classic form wins, the id first.
function quarlRefOfChat(chat) {
  if (!chat) return null;
  let id = null;
  let history = null;
  try { id = quarlSerialized(chat.__x_id || chat.id); } catch (e) {}
  try { history = quarlSerialized(chat.__x_historyChatId); } catch (e) {}
  const classic = function (ref) { return !!ref && (ref.includes('@c.us') || ref.includes('@g.us')); };
  if (classic(id)) return id;
  if (classic(history)) return history;
  return id || history || null;
}

function quarlChatRef(el) { return quarlRefOfChat(quarlChatModel(el)); }

function quarlAuthorOf(msg, chatRef) {
  if (!msg) return null;
  for (const key of ['__x_author', 'author', '__x_from', 'from']) {
    let jid = null;
    try { jid = quarlJid(quarlSerialized(msg[key])); } catch (e) {}
    if (jid && jid !== chatRef && !jid.includes('@g.us')) return jid;
  }
  return null;
}

function quarlAuthorRef(el, chatRef) { return quarlAuthorOf(quarlMsgModel(el), chatRef); }

function quarlMsgRows(main) {
  if (!main) return [];
  const rows = main.querySelectorAll('[data-testid^="conv-msg-"]');
  return Array.from(rows.length ? rows : main.querySelectorAll('div[data-id]'));
}

function quarlSleep(ms) { return new Promise(function (resolve) { setTimeout(resolve, ms); }); }

// WhatsApp Web renders a conversation over several frames: read too early and the rest is
// lost for good. The pane is believed settled only after at least four turns with the last
// two counts unchanged; a fixed sleep would be too short on a slow Mac and waste time on a
// fast one.
async function quarlSettle(main, state) {
  let count = quarlMsgRows(main).length;
  let stable = 0;
  for (let turn = 0; turn < 10; turn++) {
    await quarlSleep(150);
    const now = quarlMsgRows(main).length;
    if (now === count) {
      stable++;
    } else {
      stable = 0;
      count = now;
    }
    if (turn >= 3 && stable >= 2) return count;
  }
  state.panesStillGrowing++;
  return count;
}

// The words of a node as the owner reads them: emoji drawn as pictures keep their text.
function quarlNodeText(node) {
  let text = '';
  const walk = function (at) {
    for (const child of at.childNodes) {
      if (child.nodeType === 3) text += child.data;
      else if (child.nodeName === 'IMG') text += child.getAttribute('alt') || '';
      else if (child.nodeName === 'BR') text += '\n';
      else if (child.nodeType === 1) walk(child);
    }
  };
  walk(node);
  return text;
}

// The bubble's own words: a swipe reply carries the quoted message first, and a mention is a
// selectable span inside another, so the last outermost span outside the quote is the text.
function quarlBubbleText(row, hasMedia, state) {
  const quote = row.querySelector('[data-testid="quoted-message"], [aria-label="Quoted message"]');
  const outside = function (el) { return !(quote && quote.contains(el)); };
  const spans = Array.from(row.querySelectorAll('span.selectable-text')).filter(function (span) {
    return outside(span) && !(span.parentElement && span.parentElement.closest('span.selectable-text'));
  });
  if (spans.length) return quarlNodeText(spans[spans.length - 1]);
  const plain = Array.from(row.querySelectorAll('[data-testid="conversation-text"]')).filter(outside);
  if (plain.length) return quarlNodeText(plain[plain.length - 1]);
  if (hasMedia) return '';
  // An empty span of the first kind is no text: the second kind is tried.
  for (const selector of ['span[dir="ltr"]', 'span[dir="auto"]']) {
    const span = Array.from(row.querySelectorAll(selector)).find(outside);
    const text = span ? quarlNodeText(span) : '';
    if (!text.trim()) continue;
    // The time under a bubble is a span like any other: it is never a message's words.
    if (/^\s*[0-9]{1,2}:[0-9]{2}(\s*[AaPp][Mm])?\s*$/.test(text)) {
      state.clockAsText++;
      return '';
    }
    return text;
  }
  return '';
}

// The control that expands a collapsed bubble, found by its test ids and role, never by its
// label, so that it works in every language.
function quarlReadMore(row) {
  return row.querySelector('[data-testid="caption-read-more-button"], [data-testid*="read-more"], [role="button"][data-testid*="more"]');
}

// A collapsed bubble shows a shortened text. The model's body is used when it is the longer;
// otherwise the shortened text is kept as it stands and counted, never guessed at. An ellipsis
// alone is not proof of anything.
function quarlUncollapse(row, model, media, text, captionFromModel, state) {
  if (!quarlReadMore(row)) return text;
  state.collapsedRows++;
  if (media) {
    if (captionFromModel) state.collapsedRepaired++;
    else state.shortenedWithoutFullText++;
    return text;
  }
  let type = null;
  let body = null;
  try { type = model.__x_type; } catch (e) {}
  try { body = model.__x_body; } catch (e) {}
  if (type === 'chat' && typeof body === 'string' && body.length > text.length) {
    state.collapsedRepaired++;
    return body;
  }
  state.shortenedWithoutFullText++;
  return text;
}

function quarlText(row, model, media, state) {
  let caption = null;
  if (media) {
    try { if (typeof model.__x_caption === 'string') caption = model.__x_caption; } catch (e) {}
  }
  const text = caption !== null ? caption : quarlBubbleText(row, !!media, state);
  return quarlUncollapse(row, model, media, text, caption !== null, state);
}

// A count or size from a model: non-negative and finite, floored, or a string of digits.
function quarlNum(v) {
  if (typeof v === 'number' && isFinite(v) && v >= 0) return Math.floor(v);
  if (typeof v === 'string' && /^[0-9]+$/.test(v)) return Number(v);
  return null;
}

// An allow list: a type WhatsApp adds later is a counted miss, never a phantom file.
const quarlFileTypes = ['image', 'video', 'audio', 'ptt', 'document', 'sticker', 'vcard', 'multi_vcard', 'location',
  'live_location'];
const quarlNonFileTypes = ['chat', 'revoked', 'protocol', 'e2e_notification', 'gp2', 'call_log', 'ciphertext',
  'notification_template', 'groups_v4_invite', 'broadcast_notification'];

function quarlMedia(model, state) {
  let type = null;
  try { type = model && model.__x_type; } catch (e) {}
  if (typeof type !== 'string' || quarlNonFileTypes.includes(type)) return null;
  if (!quarlFileTypes.includes(type)) {
    state.unknownMediaTypes++;
    return null;
  }
  const media = { type: type, viewOnce: false };
  try { if (typeof model.__x_mimetype === 'string') media.mime = model.__x_mimetype; } catch (e) {}
  try { const size = quarlNum(model.__x_size); if (size !== null) media.size = size; } catch (e) {}
  try { if (typeof model.__x_filename === 'string') media.filename = model.__x_filename; } catch (e) {}
  try { media.viewOnce = model.__x_isViewOnce === true; } catch (e) {}
  try { const duration = quarlNum(model.__x_duration); if (duration !== null) media.duration = duration; } catch (e) {}
  return media;
}

const quarlOverBudget = 'over this pass\'s transfer budget — it will be read on a later pass';

// The file behind a bubble, read from the `blob:` URLs the page already decoded: a same-origin
// read, nothing fetched from the network and no key handled.
async function quarlMediaBytes(row, media, budget) {
  const urls = [];
  for (const el of row.querySelectorAll('img, video, audio, source')) {
    const src = el.currentSrc || el.getAttribute('src') || '';
    if (src.startsWith('blob:') && !urls.includes(src)) urls.push(src);
  }
  if (!urls.length) return { note: 'WhatsApp Web has not decoded this file on this Mac yet' };
  if (budget.left <= 0) return { note: quarlOverBudget };
  let best = null;
  for (const url of urls) {
    try {
      const blob = await (await fetch(url)).blob();
      if (!best || blob.size > best.size) best = blob;
    } catch (e) {}
  }
  if (!best) return { note: 'the page refused to hand over the decoded file' };
  if (typeof media.size === 'number' && best.size < media.size) {
    return { note: 'only a preview is on screen — WhatsApp has not downloaded the full file here', have: best.size };
  }
  if (best.size > budget.left) return { note: quarlOverBudget };
  const bytes = new Uint8Array(await best.arrayBuffer());
  let binary = '';
  for (let i = 0; i < bytes.length; i += 32768) binary += String.fromCharCode.apply(null, bytes.subarray(i, i + 32768));
  budget.left -= bytes.length;
  return { b64: btoa(binary), have: bytes.length, blobType: best.type || null };
}

// The 32-bit djb2-XOR hash of a text, in base 36.
function quarlHash(text) {
  let h = 5381;
  for (let i = 0; i < text.length; i++) h = (Math.imul(h, 33) ^ text.charCodeAt(i)) >>> 0;
  return h.toString(36);
}

function quarlTag(id) { return 'm' + quarlHash(id); }

function quarlNoteTag(state, key, tag, list) {
  const tags = state[list][key] || (state[list][key] = []);
  if (!tags.includes(tag)) tags.push(tag);
}

function quarlOpenChatTitle() {
  const header = document.querySelector('#main header');
  if (!header) return null;
  const title = header.querySelector('[data-testid="conversation-info-header-chat-title"], span[title], [title]');
  if (!title) return null;
  const text = (title.getAttribute('title') || quarlNodeText(title)).trim();
  return text || null;
}

// Reads the open conversation into `out`, the pass's one list: the last `messageLimit` rows,
// each id once per pass. Returns how many records it added.
async function quarlHarvest(out, state, budget, chatKey) {
  const main = document.querySelector('#main');
  if (!main) {
    state.noPane++;
    return 0;
  }
  const rows = quarlMsgRows(main);
  if (!rows.length) {
    state.chatsWithNoRows++;
    return 0;
  }
  const conv = quarlChatRef(main);
  if (!conv) state.chatsWithNoId++;
  const title = quarlOpenChatTitle();
  const before = out.length;
  for (let i = Math.max(0, rows.length - state.messageLimit); i < rows.length; i++) {
    const row = rows[i];
    state.rowsSeen++;
    const testId = row.getAttribute('data-testid') || '';
    const id = row.getAttribute('data-id') || (testId.startsWith('conv-msg-') ? testId.slice('conv-msg-'.length) : '');
    if (!id) {
      state.noId++;
      continue;
    }
    if (state.seen.has(id)) continue;
    state.seen.add(id);
    if (row.querySelector('[data-testid="msg-notification-container"]')) {
      state.systemLines++;
      continue;
    }
    // The older three-field id carries its own direction and conversation.
    const legacy = id.includes('@') && id.includes('_');
    const ownId = legacy ? id.split('_')[2] : id;
    const model = quarlMsgModel(row);
    let modelId = null;
    let type = null;
    let fromMe = null;
    let t = null;
    try { modelId = model.__x_id.id; } catch (e) {}
    try { type = model.__x_type; } catch (e) {}
    try { if (typeof model.__x_id.fromMe === 'boolean') fromMe = model.__x_id.fromMe; } catch (e) {}
    try { if (typeof model.__x_t === 'number' && isFinite(model.__x_t)) t = model.__x_t; } catch (e) {}
    if (typeof modelId === 'string' && modelId !== ownId) state.idsDisagree++;

    const media = quarlMedia(model, state);
    // A row WhatsApp has not decrypted shows a placeholder, never the message's words.
    const text = type === 'ciphertext' ? '' : quarlText(row, model, media, state);
    if (!media && !text) {
      state.noText++;
      if (type === 'ciphertext') {
        state.ciphertextRows++;
        if (chatKey) {
          quarlNoteTag(state, chatKey, quarlTag(ownId), 'waitingTags');
          if (!state.ciphertextChats.includes(chatKey)) state.ciphertextChats.push(chatKey);
        }
      }
      continue;
    }
    if (fromMe === null && row.querySelector('[data-testid="tail-out"]')) fromMe = true;
    if (fromMe === null && row.querySelector('[data-testid="tail-in"]')) fromMe = false;
    if (!legacy && fromMe === null) {
      state.noDirection++;
      continue;
    }
    if (!legacy && !conv) {
      state.noConversation++;
      continue;
    }
    const holder = row.querySelector('.copyable-text[data-pre-plain-text]') || row.querySelector('[data-pre-plain-text]');
    const pre = holder ? holder.getAttribute('data-pre-plain-text') : null;
    let bytes = null;
    if (media) {
      state.mediaRows++;
      if (media.viewOnce) {
        state.mediaViewOnce++;
        bytes = { note: 'the sender set this to view once, so nothing was read' };
      } else {
        bytes = await quarlMediaBytes(row, media, budget);
        if (bytes.b64) state.mediaBytes++;
        else state.mediaWithoutBytes++;
      }
    }
    out.push({ id: id, conv: conv, title: title, author: quarlAuthorOf(model, conv), fromMe: fromMe, t: t, pre: pre,
      text: text, media: media, bytes: bytes, chat: chatKey || null, order: out.length });
  }
  return out.length - before;
}

// The chat model behind a chat-list row: from the row, its cell, or one of its first forty
// child divs.
function quarlRowChatModel(row) {
  const direct = quarlChatModel(row);
  if (direct) return direct;
  const cell = row.querySelector('div[data-testid="cell-frame-container"]');
  const inCell = cell ? quarlChatModel(cell) : null;
  if (inCell) return inCell;
  const divs = row.querySelectorAll('div');
  for (let i = 0; i < divs.length && i < 40; i++) {
    const found = quarlChatModel(divs[i]);
    if (found) return found;
  }
  return null;
}

function quarlChatMsgs(chat) {
  try {
    const msgs = chat.msgs;
    if (!msgs) return null;
    if (Array.isArray(msgs._models)) return msgs._models;
    if (Array.isArray(msgs.models)) return msgs.models;
    if (typeof msgs.getModelsArray === 'function') return msgs.getModelsArray();
  } catch (e) {}
  return null;
}

// WhatsApp keeps only part of a chat in memory until it is opened: a chat that counts more
// unread than the inbound messages at the end of its list is read shallow.
function quarlShallow(chat, msgs, state) {
  let unread = 0;
  try { unread = quarlNum(chat.__x_unreadCount !== undefined ? chat.__x_unreadCount : chat.unreadCount) || 0; } catch (e) {}
  if (unread <= 0) return false;
  let inbound = 0;
  for (let i = msgs.length - 1; i >= 0; i--) {
    let fromMe = null;
    try { fromMe = msgs[i].__x_id.fromMe; } catch (e) {}
    if (fromMe !== false) break;
    inbound++;
  }
  if (inbound >= unread) return false;
  state.peekShallow++;
  return true;
}

// Reads a chat from its list row's model, without opening it: opening would mark it read on
// the owner's phone. The last `peekMessageLimit` messages, after any older ones whose tags are
// wanted because they were still decrypting.
function quarlPeekChat(out, row, key, want, state) {
  const chat = quarlRowChatModel(row);
  const msgs = chat ? quarlChatMsgs(chat) : null;
  if (!msgs) {
    state.peekBlind.push(key);
    return false;
  }
  state.peeked.push(key);
  quarlShallow(chat, msgs, state);
  const conv = quarlRefOfChat(chat);
  let title = null;
  try { title = chat.__x_formattedTitle || chat.__x_name || null; } catch (e) {}
  const wanted = new Set(want || []);
  const start = Math.max(0, msgs.length - state.peekMessageLimit);
  const picks = [];
  for (let i = 0; i < start; i++) {
    let id = null;
    try { id = msgs[i].__x_id.id; } catch (e) {}
    if (typeof id === 'string' && wanted.has(quarlTag(id))) picks.push(i);
  }
  for (let i = start; i < msgs.length; i++) picks.push(i);
  for (const i of picks) {
    const msg = msgs[i];
    let id = null;
    let fromMe = null;
    let t = null;
    let type = null;
    try { id = msg.__x_id.id; } catch (e) {}
    try { fromMe = msg.__x_id.fromMe; } catch (e) {}
    try { t = msg.__x_t; } catch (e) {}
    try { type = msg.__x_type; } catch (e) {}
    if (typeof id !== 'string' || typeof fromMe !== 'boolean' || typeof t !== 'number' || !conv) {
      state.peekUnreadable++;
      continue;
    }
    const tag = quarlTag(id);
    if (type === 'ciphertext') {
      state.peekWaiting++;
      quarlNoteTag(state, key, tag, 'waitingTags');
      continue;
    }
    if (wanted.has(tag)) quarlNoteTag(state, key, tag, 'resolvedTags');
    const media = quarlMedia(msg, state);
    let text = null;
    try {
      if (media) text = typeof msg.__x_caption === 'string' ? msg.__x_caption : '';
      else if (type === 'chat' && typeof msg.__x_body === 'string') text = msg.__x_body;
    } catch (e) {}
    if (text === null || state.seen.has(id)) continue;
    state.seen.add(id);
    state.peekRows++;
    const record = { id: id, conv: conv, title: title, author: quarlAuthorOf(msg, conv), fromMe: fromMe, t: t, pre: null,
      text: text, media: media, bytes: null, chat: key, peek: true, order: out.length };
    if (media) {
      record.note = media.viewOnce ? 'the sender set this to view once, so nothing was read'
        : 'read without opening the chat, so the file was not on screen to read';
    }
    out.push(record);
  }
  return true;
}

// The chat list, and its rows.
function quarlPane() {
  return document.querySelector('#pane-side') || document.querySelector('div[data-testid="chat-list"]') ||
    document.querySelector('[aria-label="Chat list"]');
}

const quarlRowSelector = 'div[role="row"], div[role="listitem"]';

// The chat rows, outermost only, without the archived chats' button.
function quarlListRows(pane) {
  if (!pane) return [];
  return Array.from(pane.querySelectorAll(quarlRowSelector)).filter(function (row) {
    if (row.closest('button[data-testid="chatlist-panel-archived-button"]')) return false;
    const outer = row.parentElement ? row.parentElement.closest(quarlRowSelector) : null;
    return !(outer && pane.contains(outer));
  });
}

// A press as a finger makes it, at the centre of the target: WhatsApp opens a chat on the
// pointer going down, not on the click.
function quarlPress(target) {
  const box = target.getBoundingClientRect();
  const x = box.left + box.width / 2;
  const y = box.top + box.height / 2;
  const under = document.elementFromPoint(x, y);
  const at = under && target.contains(under) ? under : target;
  const init = { bubbles: true, cancelable: true, composed: true, clientX: x, clientY: y, button: 0, view: window };
  at.dispatchEvent(new PointerEvent('pointerover', Object.assign({ pointerId: 1, isPrimary: true }, init)));
  at.dispatchEvent(new PointerEvent('pointerdown', Object.assign({ pointerId: 1, isPrimary: true, buttons: 1 }, init)));
  at.dispatchEvent(new MouseEvent('mousedown', Object.assign({ buttons: 1 }, init)));
  at.dispatchEvent(new PointerEvent('pointerup', Object.assign({ pointerId: 1, isPrimary: true }, init)));
  at.dispatchEvent(new MouseEvent('mouseup', init));
  at.dispatchEvent(new MouseEvent('click', init));
}

// The digits of a chat id's user part: a number filed under two ids has the same digits.
function quarlDigits(ref) { return String(ref || '').split('@')[0].replace(/[^0-9]/g, ''); }

// The conversation open in the main pane, by its chat id; none without a pane.
function quarlMainRef() {
  const main = document.querySelector('#main');
  return main ? quarlChatRef(main) : null;
}

// A key as a keyboard gives it to `target`: down and up, with a press between when asked.
function quarlKey(target, key, keyCode, press) {
  const init = { key: key, code: key, keyCode: keyCode, which: keyCode, bubbles: true, cancelable: true };
  target.dispatchEvent(new KeyboardEvent('keydown', init));
  if (press) target.dispatchEvent(new KeyboardEvent('keypress', init));
  target.dispatchEvent(new KeyboardEvent('keyup', init));
}
