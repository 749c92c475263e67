// Attaches one file to the open conversation and sends it, run after the page helpers as the
// body of an asynchronous function whose arguments are fileName, fileType, fileB64 and pasted
// (true when the picture was pasted natively, so the attaching is already done). It goes
// stage by stage as a person would (the attach button, WhatsApp's own file input, the preview,
// its send button) and stops at the first stage that fails: {ok: false, stage, reason}. It
// answers {ok: true, stage: 'sent'} only once the preview WhatsApp opened has gone.

function stop(stage, reason) { return JSON.stringify({ ok: false, stage: stage, reason: reason }); }

function quarlCount(selector) { return document.querySelectorAll(selector).length; }

// WhatsApp's file inputs in the conversation, never the profile picture's.
function quarlFileInputs() {
  const main = document.querySelector('#main');
  if (!main) return [];
  const footer = main.querySelector('footer');
  let inputs = footer ? Array.from(footer.querySelectorAll('input[type="file"]')) : [];
  if (!inputs.length) inputs = Array.from(main.querySelectorAll('input[type="file"]'));
  return inputs.filter(function (input) {
    return !input.closest('[data-testid*="profile" i], [aria-label*="profile" i], [data-testid*="avatar" i]');
  });
}

const quarlNeverClick = /send|enviar|envoyer|senden|invia|отправ|emoji|sticker|gif|voice|audio|record|mic/i;
const quarlAttachWords = /attach|adjunt|anex|joindre|anhäng|allega|bijlag|bifoga|vedlegg|załącz|прикреп|إرفاق/i;

function quarlLabelOf(el) {
  return [el.getAttribute('aria-label'), el.getAttribute('title'), el.getAttribute('data-testid')].filter(Boolean).join(' ');
}

function quarlIconOf(el) {
  const icon = el.matches('[data-icon]') ? el : el.querySelector('[data-icon]');
  return icon ? icon.getAttribute('data-icon') || '' : '';
}

function quarlAttachControl() {
  for (const selector of ['button[title="Attach"]', 'div[title="Attach"]', 'span[data-testid="clip"]', 'div[data-testid="clip"]',
    'span[data-icon="clip"]', 'span[data-icon="plus-rounded"]', 'button[aria-label="Attach"]']) {
    const control = document.querySelector(selector);
    if (control) return control;
  }
  const main = document.querySelector('#main');
  for (const scope of [main ? main.querySelector('footer') : null, main]) {
    if (!scope) continue;
    for (const button of scope.querySelectorAll('button, [role="button"]')) {
      const label = quarlLabelOf(button);
      const icon = quarlIconOf(button);
      if (quarlNeverClick.test(label) || quarlNeverClick.test(icon)) continue;
      if (quarlAttachWords.test(label) || /clip|plus|attach|add/i.test(icon)) return button;
    }
  }
  return null;
}

// Pressed as a finger would, then clicked as the element itself would be.
function quarlPressFully(el) {
  quarlPress(el);
  try { el.click(); } catch (e) {}
}

async function quarlNewInput(before) {
  for (let poll = 0; poll < 25; poll++) {
    await quarlSleep(200);
    if (quarlFileInputs().some(function (input) { return !before.includes(input); })) return true;
  }
  return false;
}

// 2 when the input names the type or its family, 1 when it takes anything, 0 when it refuses it.
function quarlAcceptScore(input, type) {
  const accept = (input.getAttribute('accept') || '').trim();
  if (!accept || accept === '*' || accept === '*/*') return 1;
  const family = type.split('/')[0] + '/*';
  const names = accept.split(',').map(function (part) { return part.trim().toLowerCase(); });
  return names.includes(type.toLowerCase()) || names.includes(family.toLowerCase()) ? 2 : 0;
}

const quarlSendSelectors = 'button[aria-label^="Send"], div[role="button"][aria-label^="Send"], button[aria-label="Send"], ' +
  'div[role="button"][aria-label="Send"], span[data-testid="send"], button[data-testid="send"], div[data-testid="send"], ' +
  'span[data-icon="send"], span[data-icon="wds-ic-send-filled"]';
const quarlDialogs = '[role="dialog"], [data-animate-modal-body]';

function quarlOutsideFooter(el) { return !el.closest('footer'); }

// The preview WhatsApp opens for an attached file: a new dialog, or an editable box or a send
// control outside the conversation's own footer.
function quarlPreview(dialogsBefore) {
  const dialogs = Array.from(document.querySelectorAll(quarlDialogs)).filter(function (d) { return !dialogsBefore.includes(d); });
  if (dialogs.length) return { drawer: dialogs[dialogs.length - 1] };
  const main = document.querySelector('#main');
  const editable = Array.from(document.querySelectorAll('[contenteditable="true"]')).filter(function (box) {
    return quarlOutsideFooter(box) && !box.closest('#side') && (!main || main.contains(box));
  });
  const sends = Array.from(document.querySelectorAll(quarlSendSelectors)).filter(quarlOutsideFooter);
  if (editable.length || sends.length) return { drawer: null, editable: editable[0] || null };
  return null;
}

async function quarlAwaitPreview(dialogsBefore) {
  for (let turn = 0; turn < 50; turn++) {
    await quarlSleep(200);
    const preview = quarlPreview(dialogsBefore);
    if (preview) return preview;
  }
  return null;
}

function quarlDrawerSend(drawer) {
  const sends = Array.from(drawer.querySelectorAll(quarlSendSelectors));
  if (sends.length) return sends[sends.length - 1];
  const buttons = Array.from(drawer.querySelectorAll('button, [role="button"]')).filter(function (button) {
    const words = quarlLabelOf(button) + ' ' + quarlIconOf(button);
    return /send|enviar|envoyer|senden|invia|отправ/i.test(words) &&
      !/cancel|close|back|discard|delete|remove|crop|rotate|undo|sticker|emoji/i.test(words);
  });
  return buttons.length ? buttons[buttons.length - 1] : null;
}

// What a person would see around the preview, for the report of a send that stuck.
function quarlInventory() {
  const buttons = Array.from(document.querySelectorAll('button, [role="button"]')).slice(-6).map(function (b) {
    return (quarlLabelOf(b) || quarlIconOf(b) || 'unnamed').slice(0, 40);
  });
  const sends = Array.from(document.querySelectorAll(quarlSendSelectors)).slice(0, 3).map(function (s) {
    return (quarlLabelOf(s) || quarlIconOf(s) || s.tagName.toLowerCase()).slice(0, 40);
  });
  return 'buttons: ' + (buttons.join(', ') || 'none') + '; send candidates: ' + (sends.join(', ') || 'none');
}

async function quarlGone(sendsBefore, dialogsBefore, turns) {
  for (let turn = 0; turn < turns; turn++) {
    await quarlSleep(200);
    if (quarlCount(quarlSendSelectors) <= sendsBefore && quarlCount(quarlDialogs) <= dialogsBefore) return true;
  }
  return false;
}

// a. The bytes.
let bytes = null;
try {
  const raw = atob(fileB64);
  bytes = new Uint8Array(raw.length);
  for (let i = 0; i < raw.length; i++) bytes[i] = raw.charCodeAt(i);
} catch (e) {
  return stop('decode', 'Quarl could not read the file it was given, so nothing was sent.');
}
if (!bytes.length) return stop('decode', 'The file arrived empty, so nothing was sent.');

const titleAtStart = quarlOpenChatTitle();
// A native paste came before this script: its preview may be up already, so what stood before
// is the conversation without any preview.
const sendsBefore = pasted ? Array.from(document.querySelectorAll(quarlSendSelectors)).filter(function (e) {
  return !quarlOutsideFooter(e);
}).length : quarlCount(quarlSendSelectors);
const dialogsBefore = pasted ? [] : Array.from(document.querySelectorAll(quarlDialogs));

let input = null;
let transfer = null;
if (!pasted) {
  // b–d. WhatsApp's own file input, from its attach menu.
  const inputsBefore = quarlFileInputs();
  let control = quarlAttachControl();
  let fresh = false;
  if (control) {
    quarlPressFully(control);
    fresh = await quarlNewInput(inputsBefore);
  }
  if (!fresh) {
    control = null;
    for (let look = 0; look < 40 && !control; look++) {
      control = quarlAttachControl();
      if (!control) await quarlSleep(200);
    }
    if (!control) return stop('attachMenu', 'WhatsApp Web has changed and Quarl could not find the attach button, so the file was not sent.');
    quarlPressFully(control);
    fresh = await quarlNewInput(inputsBefore);
  }
  const inputs = quarlFileInputs();
  if (!inputs.length) {
    return stop('fileInput', 'Quarl opened WhatsApp\'s attach menu and no file picker appeared, so the file was not sent.');
  }

  // e. The input that takes this type, a new one first.
  let best = 0;
  for (const candidate of inputs) {
    const score = quarlAcceptScore(candidate, fileType);
    const rank = score === 0 ? 0 : score * 2 + (inputsBefore.includes(candidate) ? 0 : 1);
    if (rank > best) {
      best = rank;
      input = candidate;
    }
  }
  if (!input) return stop('notAccepted', 'WhatsApp Web will not take a ' + fileType + ' from this Mac, so nothing was sent.');

  // f. The file, as the picker would have handed it over.
  try {
    transfer = new DataTransfer();
    transfer.items.add(new File([bytes], fileName, { type: fileType }));
    Object.getOwnPropertyDescriptor(HTMLInputElement.prototype, 'files').set.call(input, transfer.files);
    input.dispatchEvent(new Event('input', { bubbles: true }));
    input.dispatchEvent(new Event('change', { bubbles: true }));
  } catch (e) {
    return stop('dataTransfer', 'This Mac\'s browser engine would not build a file for WhatsApp, so nothing was sent.');
  }
}

// g. The preview; failing that, the file pasted into the message box.
let preview = await quarlAwaitPreview(dialogsBefore);
if (!preview) {
  const box = document.querySelector('#main footer [contenteditable="true"]');
  if (box && transfer) {
    try {
      box.focus();
      box.dispatchEvent(new ClipboardEvent('paste', { clipboardData: transfer, bubbles: true, cancelable: true }));
    } catch (e) {}
    preview = await quarlAwaitPreview(dialogsBefore);
  }
}
if (!preview) {
  const held = input && input.files ? input.files.length : 0;
  return stop('preview', 'WhatsApp Web did not offer to send the file after Quarl attached it, so nothing was sent. (The picker held ' +
    held + ' file(s) afterwards. ' + quarlInventory() + '.)');
}

// h. Still the conversation it was meant for.
if (quarlOpenChatTitle() !== titleAtStart) {
  return stop('confirm', 'WhatsApp Web changed conversation while Quarl was attaching the file, so nothing was sent. The file is still attached to the conversation it was meant for, waiting to be sent by hand.');
}

// i. Send, from the preview's own button; in a preview without a drawer, Enter first.
const pressed = [];
const pressSend = function () {
  const send = preview.drawer ? quarlDrawerSend(preview.drawer)
    : Array.from(document.querySelectorAll(quarlSendSelectors)).filter(quarlOutsideFooter).pop();
  if (!send) return false;
  quarlPressFully(send.closest('button, [role="button"]') || send);
  pressed.push('the send button');
  return true;
};
const pressEnter = function () {
  const box = preview.editable || (preview.drawer && preview.drawer.querySelector('[contenteditable="true"]'));
  if (!box) return false;
  box.focus();
  quarlKey(box, 'Enter', 13, true);
  pressed.push('Enter');
  return true;
};
const first = preview.drawer ? pressSend : pressEnter;
const second = preview.drawer ? pressEnter : pressSend;
if (!first() && !second()) {
  return stop('preview', 'WhatsApp Web opened its preview and Quarl could not find the button that sends it, so nothing was sent. ' +
    quarlInventory() + '.');
}

// j. Gone from the screen means sent; else once more, the other way.
if (await quarlGone(sendsBefore, dialogsBefore.length, 40)) return JSON.stringify({ ok: true, stage: 'sent' });
if (second() || first()) {
  if (await quarlGone(sendsBefore, dialogsBefore.length, 30)) return JSON.stringify({ ok: true, stage: 'sent' });
}
return stop('confirm', 'Quarl attached the file and pressed send, and WhatsApp Web still has it waiting. Nothing is assumed to have gone. (pressed: ' +
  pressed.join(', ') + '.) ' + quarlInventory() + '.');
