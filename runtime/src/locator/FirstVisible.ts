// The search for the first visible character of a page. Characters in reading order fall into three
// runs: before the page, on it, after it. Some characters have no box of their own (collapsed white
// space, text in hidden elements) and tell nothing; the search steps over them.

export type CharacterPlacement = 'before' | 'visible' | 'after' | 'unplaced';

// The smallest position in [0, length) whose character is visible, or undefined when the page
// shows no text. `placement` must be monotonic over the placed characters.
export function firstVisiblePosition(length: number, placement: (position: number) => CharacterPlacement): number | undefined {
  const placedAtOrAfter = (start: number, end: number): { position: number; placement: CharacterPlacement } | undefined => {
    for (let position = start; position < end; position += 1) {
      const found = placement(position);
      if (found !== 'unplaced') return { position, placement: found };
    }
    return undefined;
  };
  // Invariant: every placed character below `low` is before the page; the answer is below `high`.
  let low = 0;
  let high = length;
  let answer: { position: number; placement: CharacterPlacement } | undefined;
  while (low < high) {
    const middle = (low + high) >> 1;
    const probe = placedAtOrAfter(middle, high);
    if (probe === undefined) {
      high = middle;
      continue;
    }
    if (probe.placement === 'before') {
      low = probe.position + 1;
    } else {
      answer = probe;
      high = middle;
    }
  }
  if (answer === undefined) return undefined;
  // `low` is where the non-before characters start; the first placed one from there decides.
  const first = placedAtOrAfter(low, length);
  return first !== undefined && first.placement === 'visible' ? first.position : undefined;
}
