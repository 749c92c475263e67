// devbrain's WhatsApp Web stand-in. It draws what the server's state says, in one of three dated
// markups, and hangs React-shaped fibres and WhatsApp-shaped models off its nodes where the real
// page does, so that the companion's scripts meet what they would meet there:
//   2023  rows with data-testid="conv-msg-<legacy id>", tails and controls by data-testid
//   2025  rows by legacy data-id only, controls by data-icon ("wds-ic-send-filled")
//   2026  rows by bare data-id (the message's own id), no tails: direction only in the model
// Sending works as there too: a search box over the list (archived chats are found only by it),
// the /send?phone= link that opens a chat by number, a message box with its send button, and an
// attach menu whose file inputs lead to a preview with its own send button. Tuning keys give
// the variants a changed page would show: `sendIgnored`, `sendBreaksJson`, `attach` ("none" or
// "noInput"), `accept` (one input taking only that) and `preview` ("none" or "sticks").
(function () {
  'use strict';
  const root = document.getElementById('root');
  const fiberKey = '__reactFiber$' + Math.random().toString(36).slice(2, 12);
  const stringify = JSON.stringify;
  let shown = { version: -1 };
  let openChat = null;
  let renderTurn = 0;
  let listTop = 0;
  let searchQuery = '';
  const deepLink = /\/send$/.test(location.pathname) ? new URLSearchParams(location.search).get('phone') : null;
  let deepLinkPending = !!deepLink;

  function post(event) {
    return fetch('events', { method: 'POST', headers: { 'content-type': 'application/json' }, body: stringify(event) });
  }

  function el(tag, attrs, children) {
    const node = document.createElement(tag);
    for (const [name, value] of Object.entries(attrs || {})) {
      if (value === undefined || value === null || value === false) continue;
      if (name === 'text') node.textContent = value;
      else node.setAttribute(name, value === true ? '' : value);
    }
    for (const child of children || []) if (child) node.appendChild(child);
    return node;
  }

  // A fibre whose props hold `props` at `depth` steps up its `return` chain, with empty
  // fibres below, as React's wrappers leave them.
  function hangFiber(node, depth, props) {
    let fiber = { memoizedProps: props, return: { memoizedProps: { children: [] }, return: null } };
    for (let i = 0; i < depth; i++) fiber = { memoizedProps: { className: 'wrapper-' + i }, return: fiber };
    Object.defineProperty(node, fiberKey, { value: fiber, enumerable: false, configurable: true });
  }

  // The models WhatsApp keeps: `__x_` fields, ids as objects with `_serialized`.
  function jid(ref) { return { _serialized: ref, toString: function () { return ref; } }; }

  function msgModel(chat, m) {
    const model = {
      __x_id: { id: m.id, fromMe: !!m.fromMe, remote: jid(chat.id), _serialized: legacyId(chat, m) },
      __x_type: m.type || 'chat', __x_t: m.t,
    };
    // `modelBody` gives the model a body other than the one drawn, as a collapsed message may have.
    if (m.body !== undefined && model.__x_type === 'chat') model.__x_body = m.modelBody !== undefined ? m.modelBody : m.body;
    if (m.author) model.__x_author = jid(m.author);
    for (const field of ['caption', 'mimetype', 'size', 'filename', 'duration']) {
      if (m[field] !== undefined) model['__x_' + field] = m[field];
    }
    if (m.viewOnce) model.__x_isViewOnce = true;
    return model;
  }

  function chatModel(chat) {
    const models = (chat.messages || []).concat(chat.modelOnly || []).map(function (m) { return msgModel(chat, m); });
    const model = { __x_id: jid(chat.id), __x_formattedTitle: chat.title, __x_unreadCount: chat.unread || 0,
      msgs: { _models: models } };
    if (chat.historyId) model.__x_historyChatId = jid(chat.historyId);
    return model;
  }

  function legacyId(chat, m) {
    return (m.fromMe ? 'true' : 'false') + '_' + chat.id + '_' + m.id + (m.author ? '_' + m.author : '');
  }

  function clock(t) {
    const d = new Date(t * 1000);
    return String(d.getHours()).padStart(2, '0') + ':' + String(d.getMinutes()).padStart(2, '0');
  }

  function prePlainText(chat, m) {
    const d = new Date(m.t * 1000);
    const date = d.getDate() + '/' + (d.getMonth() + 1) + '/' + d.getFullYear();
    const who = m.fromMe ? 'Me' : (m.authorName || chat.title);
    return '[' + clock(m.t) + ', ' + date + '] ' + who + ': ';
  }

  // The bubble's words: emoji as pictures with their text as alt, line breaks as <br>.
  function words(text) {
    const span = el('span', { class: 'selectable-text copyable-text', dir: 'ltr' });
    const inner = el('span');
    const parts = String(text).split(/(\n|:[a-z]+:)/);
    for (const part of parts) {
      if (part === '\n') inner.appendChild(el('br'));
      else if (/^:[a-z]+:$/.test(part)) inner.appendChild(el('img', { alt: part === ':smile:' ? '😄' : '🙂', class: 'emoji' }));
      else if (part) inner.appendChild(document.createTextNode(part));
    }
    span.appendChild(inner);
    return span;
  }

  function messageRow(chat, m, markup) {
    const attrs = {};
    if (markup === '2023') {
      attrs['data-testid'] = 'conv-msg-' + legacyId(chat, m);
      attrs['data-id'] = legacyId(chat, m);
    } else if (markup === '2025') {
      attrs['data-id'] = legacyId(chat, m);
    } else {
      attrs['data-id'] = m.id;
    }
    attrs.role = 'row';
    const row = el('div', attrs);
    if (m.system) {
      row.appendChild(el('div', { 'data-testid': 'msg-notification-container', text: m.system }));
      return row;
    }
    const bubble = el('div', { class: m.fromMe ? 'message-out' : 'message-in' });
    if (markup === '2023') bubble.appendChild(el('span', { 'data-testid': m.fromMe ? 'tail-out' : 'tail-in' }));
    if (m.quoted) {
      bubble.appendChild(el('div', { 'data-testid': 'quoted-message' }, [words(m.quoted)]));
    }
    const holder = el('div', { class: 'copyable-text', 'data-pre-plain-text': m.noPrePlainText ? null : prePlainText(chat, m) });
    const type = m.type || 'chat';
    if (type === 'ciphertext') {
      holder.appendChild(el('span', { dir: 'ltr', text: 'Waiting for this message. This may take a while.' }));
    } else if (type === 'document') {
      // A document shows its first page as a picture, and its name.
      holder.appendChild(el('img', { src: 'data:image/gif;base64,R0lGODlhAQABAAAAACw=', class: 'thumb' }));
      holder.appendChild(el('span', { class: 'file-name', text: m.filename || 'document' }));
    } else if (m.blob) {
      const bytes = Uint8Array.from(atob(m.blob), function (c) { return c.charCodeAt(0); });
      const url = URL.createObjectURL(new Blob([bytes], { type: m.mimetype || 'application/octet-stream' }));
      holder.appendChild(el(type === 'video' ? 'video' : 'img', { src: url }));
      if (m.caption) holder.appendChild(words(m.caption));
    } else if (m.body !== undefined && !m.clockOnly) {
      const shownText = m.collapsed ? m.body.slice(0, m.collapsed) + '…' : m.body;
      holder.appendChild(words(shownText));
      if (m.collapsed) {
        const more = el('div', { role: 'button', 'data-testid': markup === '2023' ? 'read-more-button' : null,
          class: 'read-more', text: 'Read more' });
        if (markup !== '2023') more.setAttribute('data-testid', 'caption-read-more-button');
        holder.appendChild(more);
      }
    }
    bubble.appendChild(holder);
    bubble.appendChild(el('span', { dir: 'auto', class: 'time', text: clock(m.t) }));
    row.appendChild(bubble);
    // The message model sits a few fibres up from the row, never at a fixed depth.
    hangFiber(row, m.fiberDepth !== undefined ? m.fiberDepth : 2 + (m.t % 7), { msg: msgModel(chat, m) });
    return row;
  }

  function screenOf(state) {
    if (state.screen === 'link') {
      const code = el('div', { 'data-ref': state.ref }, [el('canvas', { 'aria-label': 'Scan this QR code to link a device!', width: 264, height: 264 })]);
      return el('div', { class: 'landing' }, [el('h1', { text: 'Steps to log in' }), code]);
    }
    if (state.screen === 'loading') {
      return el('div', { 'data-testid': state.markup === '2023' ? 'wa-web-loading-screen' : null, class: 'startup' },
        [el('progress', { value: 40, max: 100 }), el('div', { text: 'WhatsApp' })]);
    }
    if (state.screen === 'syncing') {
      return el('div', { class: 'sync' }, [el('div', { text: 'Messages are downloading' })]);
    }
    if (state.screen === 'evicted') {
      const button = el('div', { role: 'button', text: 'Use here' });
      button.addEventListener('click', function () { post({ reclaimed: true }); });
      return el('div', { class: 'takeover' }, [
        el('div', { text: 'WhatsApp is open in another window. Click "Use here" to use WhatsApp in this window.' }),
        el('div', {}, [button])]);
    }
    if (state.screen === 'linked') return linkedScreen(state);
    return el('div', { text: 'Something went wrong' });
  }

  // Chats by activity, newest first; only the rows near the scroll position exist, as in a
  // virtualised list.
  // Chats by activity, newest first; while searching, every chat whose title holds the words,
  // archived ones too. The pane shows all but the last two rows it draws, which wait below it.
  function listedChats(state) {
    const query = searchQuery.toLowerCase();
    return state.chats.filter(function (chat) {
      return query ? String(chat.title || '').toLowerCase().includes(query) : !chat.archived;
    }).sort(function (a, b) { return lastT(b) - lastT(a); });
  }

  function chatList(state) {
    const chats = listedChats(state);
    const drawn = state.visibleRows || 11;
    const pane = el('div', { id: 'pane-side', 'aria-label': 'Chat list', style: 'height:' + Math.max(1, drawn - 2) * 72 + 'px' });
    const grid = el('div', { role: 'grid', 'aria-rowcount': chats.length, style: 'height:' + chats.length * 72 + 'px' });
    const first = Math.floor(listTop / 72);
    const last = Math.min(chats.length, first + drawn);
    for (let i = first; i < last; i++) {
      const chat = chats[i];
      const title = el('div', { class: 'title' }, [el('span', { title: chat.title, dir: 'auto', text: chat.title })]);
      const open = chat.id === openChat;
      // The press target and the selection: a test id on the cell in 2023, a grid cell since; the
      // open chat's row is selected, on the row until 2025 and on its cell in 2026.
      const cell = el('div', { 'data-testid': state.markup === '2023' ? 'cell-frame-container' : null,
        role: state.markup === '2023' ? null : 'gridcell', class: 'cell',
        'aria-selected': state.markup === '2026' ? String(open) : null }, [
        title,
        el('span', { class: 'preview', dir: 'ltr', text: preview(chat) }),
        chat.unread ? el('span', { 'aria-label': chat.unread + ' unread messages', text: String(chat.unread) }) : null]);
      const row = el('div', { role: 'listitem', style: 'transform: translateY(' + i * 72 + 'px)',
        'aria-selected': state.markup === '2026' ? null : String(open) }, [cell]);
      // The chat model hangs off the cell where it has its test id, else off a div inside it.
      hangFiber(state.markup === '2023' ? cell : title, chat.fiberDepth !== undefined ? chat.fiberDepth : 3 + (i % 5),
        { chat: chatModel(chat) });
      // A finger's press: WhatsApp opens a chat on mousedown, not on click.
      // A `stubborn` chat's row takes no press, as a row WhatsApp is still drawing.
      // An `opensInstead` chat's row opens another chat, as a list drawn late under the finger can.
      if (!chat.stubborn) row.addEventListener('mousedown', function () { openConversation(chat.opensInstead || chat.id); });
      grid.appendChild(row);
    }
    pane.appendChild(grid);
    pane.addEventListener('scroll', function () {
      if (pane.scrollTop === listTop) return;
      listTop = pane.scrollTop;
      const fresh = chatList(shown);
      pane.replaceWith(fresh);
      fresh.scrollTop = listTop;
    });
    return pane;
  }

  // The row shows only what is drawn: a message held only in the chat's model changes neither
  // the row nor its place, as when WhatsApp has it in memory before the list catches up.
  function lastT(chat) {
    const drawn = chat.messages || [];
    return drawn.length ? drawn[drawn.length - 1].t : 0;
  }

  function preview(chat) {
    const drawn = chat.messages || [];
    const last = drawn[drawn.length - 1];
    return last ? (last.type === 'ciphertext' ? 'Waiting for this message' : (last.body || last.caption || '')) : '';
  }

  function tuning(key) { return shown[key]; }

  function sendIcon(markup) {
    return markup === '2023' ? el('span', { 'data-testid': 'send', 'data-icon': 'send' })
      : el('span', { 'data-icon': 'wds-ic-send-filled' });
  }

  function composer(markup) {
    const box = el('div', { contenteditable: 'true', role: 'textbox', 'data-lexical-editor': 'true',
      'aria-label': 'Type a message', 'data-tab': '10' }, [el('p', { class: 'selectable-text copyable-text' })]);
    const send = el('button', { 'aria-label': 'Send', 'data-tab': '11' }, [sendIcon(markup)]);
    send.addEventListener('click', function () {
      const text = box.innerText.replace(/\n$/, '');
      if (!text || !openChat || tuning('sendIgnored')) return;
      post({ sent: { chat: openChat, text: text } });
      box.innerHTML = '<p class="selectable-text copyable-text"></p>';
      // A page script that replaces a global breaks every answer built with it afterwards.
      if (tuning('sendBreaksJson')) JSON.stringify = function () { return undefined; };
    });
    const footer = el('footer', {}, [box, send]);
    if (tuning('attach') !== 'none') {
      const attach = el('div', { role: 'button', title: 'Attach', 'data-testid': markup === '2023' ? 'clip' : null },
        [el('span', { 'data-icon': markup === '2023' ? 'clip' : 'plus-rounded' })]);
      // Pressing opens the menu; pressing again leaves it open.
      attach.addEventListener('click', function () { openAttachMenu(footer, markup); });
      footer.insertBefore(attach, box);
    }
    return footer;
  }

  function openAttachMenu(footer, markup) {
    if (footer.querySelector('.attach-menu')) return;
    const menu = el('ul', { class: 'attach-menu', role: 'menu' });
    if (tuning('attach') !== 'noInput') {
      const inputs = tuning('accept') !== undefined ? [['Document', tuning('accept')]]
        : [['Photos & videos', 'image/*,video/mp4,video/3gpp,video/quicktime'], ['Document', '*']];
      for (const [label, accept] of inputs) {
        const input = el('input', { type: 'file', accept: accept, style: 'display:none' });
        input.addEventListener('change', function () { showPreview(input, markup); });
        menu.appendChild(el('li', { role: 'menuitem', text: label }, [input]));
      }
    }
    footer.appendChild(menu);
  }

  function base64Of(buffer) {
    const bytes = new Uint8Array(buffer);
    let text = '';
    for (let i = 0; i < bytes.length; i += 32768) text += String.fromCharCode.apply(null, bytes.subarray(i, i + 32768));
    return btoa(text);
  }

  // WhatsApp's preview of an attached file, over the conversation, with its own send button.
  function showPreview(input, markup) {
    const file = input.files && input.files[0];
    const main = document.querySelector('#main');
    if (!file || !main || tuning('preview') === 'none') return;
    const chat = openChat;
    const caption = el('div', { contenteditable: 'true', role: 'textbox', 'aria-label': 'Add a caption' });
    const send = el('div', { role: 'button', 'aria-label': 'Send' }, [sendIcon(markup)]);
    const close = el('div', { role: 'button', 'aria-label': 'Close' }, [el('span', { 'data-icon': 'x' })]);
    const dialog = el('div', { role: 'dialog', class: 'preview' }, [close, el('div', { text: file.name }), caption, send]);
    close.addEventListener('click', function () { dialog.remove(); });
    send.addEventListener('click', async function () {
      if (tuning('preview') === 'sticks' || !dialog.isConnected) return;
      dialog.remove();
      const b64 = base64Of(await file.arrayBuffer());
      post({ sentMedia: { chat: chat, name: file.name, type: file.type, b64: b64 } });
    });
    main.appendChild(dialog);
    const menu = main.querySelector('.attach-menu');
    if (menu) menu.remove();
  }

  function conversation(state) {
    const chat = state.chats.find(function (c) { return c.id === openChat; });
    if (!chat) return null;
    // An update elsewhere leaves an open conversation's nodes as they are, as React does.
    const drawn = stringify([state.markup, chat.messages, state.attach, state.accept]);
    const before = document.querySelector('#main');
    if (before && before.quarlChat === chat.id && before.quarlDrawn === drawn) return before;
    const main = el('div', { id: 'main' });
    main.quarlChat = chat.id;
    main.quarlDrawn = drawn;
    const header = el('header', {}, [el('span', {
      'data-testid': state.markup === '2023' ? 'conversation-info-header-chat-title' : null, dir: 'auto',
      title: chat.title, text: chat.title })]);
    const rows = el('div', { class: 'rows', role: 'application' });
    main.appendChild(header);
    main.appendChild(rows);
    main.appendChild(composer(state.markup));
    hangFiber(main, chat.mainFiberDepth !== undefined ? chat.mainFiberDepth : 9, { chat: chatModel(chat) });
    // A conversation arrives over several frames, a few rows at a time.
    const turn = ++renderTurn;
    const messages = chat.messages || [];
    let at = 0;
    const more = function () {
      if (turn !== renderTurn) return;
      for (let n = 0; n < (state.rowsPerFrame || 4) && at < messages.length; n++, at++) {
        rows.appendChild(messageRow(chat, messages[at], state.markup));
      }
      if (at < messages.length) setTimeout(more, state.frameMs || 80);
    };
    more();
    return main;
  }

  function searchBox() {
    const box = el('div', { contenteditable: 'true', role: 'textbox', 'data-tab': '3', 'aria-label': 'Search input textbox' });
    box.textContent = searchQuery;
    const redraw = function () {
      listTop = 0;
      const pane = document.querySelector('#pane-side');
      if (pane) pane.replaceWith(chatList(shown));
    };
    box.addEventListener('input', function () {
      searchQuery = box.innerText.trim();
      redraw();
    });
    box.addEventListener('keydown', function (event) {
      if (event.key !== 'Escape') return;
      box.textContent = '';
      searchQuery = '';
      redraw();
    });
    return box;
  }

  function linkedScreen(state) {
    const side = el('div', { id: 'side' }, [el('header', { text: 'Chats' }), searchBox(), chatList(state)]);
    const app = el('div', { id: 'app' }, [side]);
    const main = conversation(state);
    if (main) app.appendChild(main);
    return app;
  }

  function openConversation(id) {
    openChat = id;
    // Opening reads the chat: its badge goes at once, before the server hears of it.
    const chat = (shown.chats || []).find(function (c) { return c.id === id; });
    if (chat) chat.unread = 0;
    post({ opened: id });
    render(shown);
  }

  function render(state) {
    shown = state;
    // The list keeps its place as the DOM holds it, even when its scroll event has not come yet.
    const before = document.querySelector('#pane-side');
    if (before) listTop = before.scrollTop;
    root.replaceChildren(screenOf(state));
    const pane = document.querySelector('#pane-side');
    if (pane) pane.scrollTop = listTop;
  }

  // The /send?phone= link opens the chat with that number, starting one when there is none.
  async function followDeepLink(state) {
    const digits = String(deepLink).replace(/[^0-9]/g, '');
    deepLinkPending = false;
    let chat = state.chats.find(function (c) { return String(c.id).split('@')[0] === digits; });
    if (!chat) {
      await post({ newChat: { id: digits + '@c.us', title: '+' + digits } });
      state = await (await fetch('state')).json();
      chat = state.chats.find(function (c) { return c.id === digits + '@c.us'; });
    }
    if (chat) {
      openChat = chat.id;
      post({ opened: chat.id });
    }
    return state;
  }

  async function poll() {
    try {
      let state = await (await fetch('state')).json();
      if (deepLinkPending && state.screen === 'linked') state = await followDeepLink(state);
      if (state.version !== shown.version) render(state);
    } catch (e) {}
    setTimeout(poll, 250);
  }
  poll();
})();
