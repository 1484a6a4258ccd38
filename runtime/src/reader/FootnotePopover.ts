// A footnote shown beside its reference. The note is copied into the section's own document, so
// that the book's styles and the reader's theme apply to it and, under the section's content
// policy, nothing in it can run; it is marked as the runtime's, so locators look through it.
import { runtimeNodeAttribute } from '../cfi/ignoredNodes';
import type { ThemeColors } from '../layout/Presentation';

const xhtmlNamespace = 'http://www.w3.org/1999/xhtml';

// Nodes of a section come from its frame, whose Node is not this page's: `instanceof` says no.
function isNode(target: EventTarget | null): target is Node {
  return target !== null && typeof (target as Partial<Node>).nodeType === 'number';
}
const edgeGap = 8;

export class FootnotePopover {
  private box: HTMLElement | undefined;
  private goButton: HTMLElement | undefined;

  get isOpen(): boolean {
    return this.box !== undefined && this.box.isConnected;
  }

  // Whether `target` lies in the popover, and whether it is its "Go to Note" button.
  contains(target: EventTarget | null): boolean {
    return this.box !== undefined && isNode(target) && this.box.contains(target);
  }

  isGoToNoteButton(target: EventTarget | null): boolean {
    return this.goButton !== undefined && isNode(target) && this.goButton.contains(target);
  }

  // Shows the content of `note` (an element of `doc` or of another document) under `link`.
  show(doc: Document, link: Element, note: Element, colors: ThemeColors): void {
    this.hide();
    const box = doc.createElementNS(xhtmlNamespace, 'div') as HTMLElement;
    box.setAttribute(runtimeNodeAttribute, 'footnote');
    box.setAttribute('role', 'dialog');
    box.setAttribute('aria-label', 'Footnote');
    const style = box.style;
    style.setProperty('position', 'absolute');
    style.setProperty('z-index', '2147483647');
    style.setProperty('box-sizing', 'border-box');
    // A set width: shrinking to fit inside the section's columns would leave a sliver.
    style.setProperty('inline-size', 'min(26em, calc(100vw - 16px))');
    style.setProperty('max-block-size', '45vh');
    style.setProperty('overflow', 'auto');
    style.setProperty('padding', '0.6em 0.9em');
    style.setProperty('border-radius', '8px');
    style.setProperty('border', `1px solid ${colors.foreground}33`);
    style.setProperty('box-shadow', '0 2px 12px rgba(0, 0, 0, 0.3)');
    style.setProperty('background', colors.background);
    style.setProperty('color', colors.foreground);
    style.setProperty('font-size', '0.9em');
    style.setProperty('writing-mode', 'horizontal-tb');
    style.setProperty('column-count', 'auto');
    const content = doc.createElementNS(xhtmlNamespace, 'div');
    for (const child of Array.from(note.childNodes)) {
      const copy = doc.importNode(child, true);
      // A copy must not answer for the note's own id, nor for any id inside it.
      if (copy.nodeType === Node.ELEMENT_NODE) {
        const element = copy as Element;
        element.removeAttribute('id');
        for (const withID of Array.from(element.querySelectorAll('[id]'))) withID.removeAttribute('id');
      }
      content.appendChild(copy);
    }
    box.appendChild(content);
    const go = doc.createElementNS(xhtmlNamespace, 'button') as HTMLElement;
    go.setAttribute('type', 'button');
    go.textContent = 'Go to Note';
    go.style.setProperty('margin-block-start', '0.5em');
    go.style.setProperty('font', 'inherit');
    box.appendChild(go);
    (doc.body ?? doc.documentElement).appendChild(box);
    this.box = box;
    this.goButton = go;
    this.place(doc, link, box);
  }

  hide(): void {
    this.box?.remove();
    this.box = undefined;
    this.goButton = undefined;
  }

  // Below the link, or above it where there is no room below, and within the frame's width.
  // The box is placed in the coordinates of the root, which pages move by a transform.
  private place(doc: Document, link: Element, box: HTMLElement): void {
    const view = doc.defaultView;
    const width = view?.innerWidth ?? 0;
    const height = view?.innerHeight ?? 0;
    const linkBox = link.getBoundingClientRect();
    const rootBox = doc.documentElement.getBoundingClientRect();
    const boxSize = box.getBoundingClientRect();
    const left = Math.max(edgeGap, Math.min(linkBox.left, width - boxSize.width - edgeGap));
    const below = linkBox.bottom + edgeGap;
    const top = below + boxSize.height <= height || linkBox.top - boxSize.height - edgeGap < 0 ? below : linkBox.top - boxSize.height - edgeGap;
    box.style.setProperty('left', `${left - rootBox.left}px`);
    box.style.setProperty('top', `${top - rootBox.top}px`);
  }
}
