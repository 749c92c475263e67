// How many of the owner's messages in the open conversation show a picture or a video: the
// count before and after a file is sent says whether it arrived. "-1" without a main pane. A
// synchronous expression.
(function () {
  const main = document.querySelector('#main');
  if (!main) return '-1';
  const selector = '.message-out, [data-id*="true_"]';
  let count = 0;
  for (const row of main.querySelectorAll(selector)) {
    // A bubble inside a row that matches too is the same message.
    const outer = row.parentElement ? row.parentElement.closest(selector) : null;
    if (outer && main.contains(outer)) continue;
    if (row.querySelector('img[src^="blob:"], video, img[src^="data:image"]')) count++;
  }
  return String(count);
})()
