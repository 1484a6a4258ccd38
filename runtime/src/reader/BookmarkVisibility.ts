// Which of the reader's bookmarks lie on the page (or spread) on screen. The native side gives the
// candidates once; from then on a change of the visible set after a move, a relayout or a scroll
// goes up as an event.
import type { BookmarkVisibilityCandidate, Locator } from '../bridge/records';

export class BookmarkVisibility {
  private candidates: BookmarkVisibilityCandidate[] = [];
  private visible: string[] | undefined;
  private readonly isOnScreen: (locator: Locator) => boolean;
  private readonly changed: (visible: string[]) => void;

  constructor(isOnScreen: (locator: Locator) => boolean, changed: (visible: string[]) => void) {
    this.isOnScreen = isOnScreen;
    this.changed = changed;
  }

  // A new book: no candidates, and no events until the next configure.
  reset(): void {
    this.candidates = [];
    this.visible = undefined;
  }

  // Keeps the candidates and answers those on screen.
  configure(candidates: BookmarkVisibilityCandidate[]): string[] {
    this.candidates = candidates;
    this.visible = this.onScreen();
    return this.visible;
  }

  // Called after every move and relayout, and when the reader scrolls.
  refresh(): void {
    if (this.visible === undefined) return;
    const visible = this.onScreen();
    if (sameMembers(visible, this.visible)) return;
    this.visible = visible;
    this.changed(visible);
  }

  private onScreen(): string[] {
    return this.candidates.filter((candidate) => this.isOnScreen(candidate.locator)).map((candidate) => candidate.id);
  }
}

function sameMembers(a: readonly string[], b: readonly string[]): boolean {
  if (a.length !== b.length) return false;
  const members = new Set(a);
  return b.every((id) => members.has(id));
}
