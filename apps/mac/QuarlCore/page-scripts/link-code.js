// The payload of the QR code on WhatsApp Web's link screen, so that a terminal can draw the
// same code; empty when the screen shows none.
(function () {
  const code = document.querySelector('[data-ref]');
  return code ? code.getAttribute('data-ref') || '' : '';
})()
