// What the open conversation's footer holds, one control a line, for the log of a send that
// could not find its way. A synchronous expression.
(function () {
  const main = document.querySelector('#main');
  const footer = main ? main.querySelector('footer') : null;
  if (!footer) return main ? 'no footer in the open conversation' : 'no conversation open';
  const lines = [];
  for (const el of footer.querySelectorAll('button, [role="button"], [contenteditable="true"], input')) {
    const facts = [el.tagName.toLowerCase()];
    for (const name of ['role', 'aria-label', 'title', 'data-testid', 'data-tab', 'type', 'accept']) {
      const value = el.getAttribute(name);
      if (value) facts.push(name + '=' + value);
    }
    const icon = el.querySelector('[data-icon]');
    if (icon) facts.push('icon=' + icon.getAttribute('data-icon'));
    lines.push(facts.join(' '));
  }
  return lines.length ? lines.join('\n') : 'the footer holds no controls';
})()
