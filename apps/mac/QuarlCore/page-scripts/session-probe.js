// What WhatsApp Web shows, most specific first. Answers one JSON text:
// {state, reclaimed?, title?, sample?}. A chat list wins over a leftover QR element.
(function () {
  function first(selectors) {
    for (const selector of selectors) {
      const found = document.querySelector(selector);
      if (found) return found;
    }
    return null;
  }
  function pageText() {
    try { return (document.body && document.body.innerText) || ''; } catch (e) { return ''; }
  }
  function unreadable(state) {
    return JSON.stringify({ state: state, title: document.title || null, sample: pageText().slice(0, 200) });
  }

  const qr = first(['[data-ref]', 'canvas[aria-label*="scan" i]', 'div[data-testid="qrcode"]']);
  const chatList = first(['#pane-side', 'div[data-testid="chat-list"]', '[aria-label="Chat list"]']);
  if (chatList) return JSON.stringify({ state: 'linked' });
  if (qr) return JSON.stringify({ state: 'needsLink' });

  const text = pageText();
  if (document.querySelector('[data-testid="wa-web-loading-screen"]') || /messages are downloading/i.test(text)) {
    return JSON.stringify({ state: 'syncing' });
  }
  // WhatsApp Web allows one web session: nobody can click in a page nobody sees, so the
  // probe takes the session back itself.
  if (/open in another window|open on another|use here|keep me signed in/i.test(text)) {
    const buttons = document.querySelectorAll('button, div[role="button"], a[role="button"]');
    for (const button of buttons) {
      if (/use here|continue here|reconnect/i.test(button.innerText || button.textContent || '')) {
        button.click();
        return JSON.stringify({ state: 'syncing', reclaimed: true });
      }
    }
    return unreadable('evicted');
  }
  return unreadable('unrecognised');
})()
