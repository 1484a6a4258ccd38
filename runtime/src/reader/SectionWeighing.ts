// The weighing of a book's sections: each section's text length, read in the background after the
// open, makes the book's progression (SectionWeights) follow the text rather than the count of
// sections.
import type { SectionWeights } from '../locator/Progression';
import type { SpineItem } from '../publication/PackageDocument';
import type { TextLoader } from '../publication/ResourceLoader';

// Reads every section's text to weigh it; stops once `isCurrent` says the book was closed. A
// section that cannot be read keeps the estimated weight.
export async function weighSections(spine: readonly SpineItem[], weights: SectionWeights, loadText: TextLoader, isCurrent: () => boolean): Promise<void> {
  for (const item of spine) {
    if (!isCurrent()) return;
    try {
      const text = await loadText(item.url);
      const parsed = new DOMParser().parseFromString(text, 'application/xhtml+xml');
      weights.setLength(item.index, (parsed.body ?? parsed.documentElement)?.textContent?.length ?? text.length);
    } catch {
      // A section that can't be read keeps the estimated weight.
    }
  }
}
