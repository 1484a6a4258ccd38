// The text of a document in reading order, as one string with a map back to its text nodes. Text
// assertions, excerpts and the search for the first visible character all work on it.
import { isRuntimeNode, isTextLike } from './ignoredNodes';

export interface TextPoint {
  node: CharacterData;
  offset: number;
}

export class TextIndex {
  readonly nodes: CharacterData[] = [];
  // starts[i] is the position of nodes[i] in `text`.
  readonly starts: number[] = [];
  readonly text: string;

  constructor(root: Node) {
    let text = '';
    const walk = (node: Node): void => {
      for (let child = node.firstChild; child !== null; child = child.nextSibling) {
        if (isTextLike(child)) {
          this.nodes.push(child);
          this.starts.push(text.length);
          text += child.data;
        } else if (child.nodeType === Node.ELEMENT_NODE && !isRuntimeNode(child)) {
          walk(child);
        }
      }
    };
    walk(root);
    this.text = text;
  }

  // The position in `text` of a point in a text node, or undefined for a node outside the index.
  positionOf(node: Node, offset: number): number | undefined {
    const index = this.nodes.indexOf(node as CharacterData);
    if (index < 0) return undefined;
    return (this.starts[index] as number) + Math.min(offset, (node as CharacterData).length);
  }

  // The position in `text` of any DOM point: the text that lies before it in reading order.
  positionOfBoundary(container: Node, offset: number): number {
    if (isTextLike(container)) {
      const position = this.positionOf(container, offset);
      if (position !== undefined) return position;
    }
    const range = container.ownerDocument?.createRange() ?? (container as Document).createRange();
    range.setStart(container, offset);
    // The first indexed text node that starts at or after the point.
    let low = 0;
    let high = this.nodes.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      const node = this.nodes[middle] as CharacterData;
      if (range.comparePoint(node, 0) < 0) low = middle + 1;
      else high = middle;
    }
    return low < this.nodes.length ? (this.starts[low] as number) : this.text.length;
  }

  // The text point at a position; at a boundary between two nodes the later node is chosen unless
  // `preferEarlier` is set.
  pointAt(position: number, preferEarlier = false): TextPoint | undefined {
    if (this.nodes.length === 0) return undefined;
    const clamped = Math.max(0, Math.min(position, this.text.length));
    let low = 0;
    let high = this.nodes.length - 1;
    while (low < high) {
      const middle = (low + high + 1) >> 1;
      const start = this.starts[middle] as number;
      if (start < clamped || (start === clamped && !preferEarlier)) low = middle;
      else high = middle - 1;
    }
    // Empty text nodes hold no position of their own.
    while (low < this.nodes.length - 1 && (this.nodes[low] as CharacterData).length === 0 && !preferEarlier) low += 1;
    const node = this.nodes[low] as CharacterData;
    return { node, offset: Math.min(clamped - (this.starts[low] as number), node.length) };
  }
}
