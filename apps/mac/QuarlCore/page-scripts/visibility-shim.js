// Injected at document start in every frame: the page must believe it is a visible, focused
// tab, or WhatsApp Web throttles itself and stops rendering new messages.
(function () {
  try {
    const define = function (name, value) {
      Object.defineProperty(document, name, { configurable: true, get: function () { return value; } });
    };
    define('hidden', false);
    define('visibilityState', 'visible');
    define('webkitHidden', false);
    define('webkitVisibilityState', 'visible');
  } catch (e) {}
  document.addEventListener('visibilitychange', function (event) { event.stopImmediatePropagation(); }, true);
  window.addEventListener('blur', function (event) { event.stopImmediatePropagation(); }, true);
})();
