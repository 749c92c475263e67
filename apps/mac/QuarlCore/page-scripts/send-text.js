// Types `body` into the open conversation's message box and presses send, run after the page
// helpers and the spliced constants `want` (the chat id the open confirmed) and `body`, as the
// body of an asynchronous function. It answers {ok} only once the box has let go of the words;
// every other answer says why nothing is assumed to have gone.

function answer(ok, reason) { return JSON.stringify(ok ? { ok: true } : { ok: false, reason: reason }); }

function quarlComposer() {
  const selectors = ['div[data-testid="conversation-compose-box-input"]', 'footer div[contenteditable="true"][role="textbox"]',
    'div[contenteditable="true"][data-tab="10"]', 'div[contenteditable="true"][data-tab="6"]'];
  for (const selector of selectors) {
    const box = document.querySelector(selector);
    if (box) return box;
  }
  const main = document.querySelector('#main');
  for (const scope of [main ? main.querySelector('footer') : null, main]) {
    if (!scope) continue;
    for (const box of scope.querySelectorAll('[contenteditable="true"]')) {
      const label = (box.getAttribute('aria-label') || '') + ' ' + (box.getAttribute('data-testid') || '');
      if (!/search|buscar|rechercher|suchen/i.test(label)) return box;
    }
  }
  return null;
}

// Why there is no message box, by what the page shows instead.
function quarlNoComposerReason() {
  if (document.querySelector('[data-ref], canvas[aria-label*="scan" i], div[data-testid="qrcode"]')) {
    return 'WhatsApp Web is asking for the QR code again — Quarl is signed out. Open Quarl settings and link WhatsApp again.';
  }
  if (/open in another window|open on another|use here|keep me signed in/i.test(document.body.innerText || '')) {
    return 'WhatsApp Web is open somewhere else — it allows one web session at a time, so close the WhatsApp tab in your browser and Quarl gets it back.';
  }
  if (!document.querySelector('#main')) {
    return 'Quarl could not open that conversation in WhatsApp Web, so there was no message box to type into.';
  }
  return 'WhatsApp Web has changed and Quarl could not find the message box.';
}

function quarlSendControl() {
  for (const selector of ['button[data-testid="send"]', 'span[data-testid="send"]', 'button[aria-label="Send"]',
    'span[data-icon="send"]']) {
    const control = document.querySelector(selector);
    if (control) return control;
  }
  return null;
}

function quarlFlat(text) { return String(text || '').replace(/\s+/g, ' ').trim(); }

let composer = null;
for (let poll = 0; poll < 40 && !composer; poll++) {
  composer = quarlComposer();
  if (!composer) await quarlSleep(200);
}
if (!composer) return answer(false, quarlNoComposerReason());
// The owner may have opened another chat since the open was confirmed.
if (quarlMainRef() !== want) {
  return answer(false, 'WhatsApp Web changed conversation before Quarl typed, so nothing was sent.');
}

composer.focus();
const range = document.createRange();
range.selectNodeContents(composer);
range.collapse(false);
const selection = window.getSelection();
selection.removeAllRanges();
selection.addRange(range);
document.execCommand('insertText', false, body);
await quarlSleep(120);

const control = quarlSendControl();
if (!control) return answer(false, 'Quarl typed the reply but could not find WhatsApp\'s send button. Nothing was sent.');
(control.closest('button') || control).click();

await quarlSleep(250);
const after = quarlComposer();
const start = quarlFlat(body).slice(0, 20);
if (after && start && quarlFlat(quarlNodeText(after)).includes(start)) {
  return answer(false, 'WhatsApp Web did not accept the send. The reply is still in the message box.');
}
return answer(true);
