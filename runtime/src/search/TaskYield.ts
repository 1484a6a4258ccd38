// Gives the page a turn during long work in the background (a search, the weighing of a book):
// resolves in a task of its own, after the tasks already queued. A message
// the window posts to itself is used: setTimeout is clamped to 4 ms once timers nest, which over a
// search of a book of many short sections added up to a second of idle waiting, and a message
// channel's messages took milliseconds each to arrive.
export function makeTaskYield(): () => Promise<void> {
  if (typeof window === 'undefined' || typeof window.postMessage !== 'function') {
    return () => new Promise((resolve) => setTimeout(resolve, 0));
  }
  const token = `tomekeeper-search-turn-${Math.random().toString(36).slice(2)}`;
  const waiting: (() => void)[] = [];
  let listening = false;
  return () =>
    new Promise<void>((resolve) => {
      if (!listening) {
        listening = true;
        window.addEventListener('message', (event) => {
          if (event.source !== window || event.data !== token) return;
          event.stopImmediatePropagation();
          waiting.shift()?.();
        });
      }
      waiting.push(resolve);
      window.postMessage(token, '*');
    });
}
