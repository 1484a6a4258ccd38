// Nodes that the runtime puts into a book's document (its style sheet, measuring marks) carry this
// attribute. Locators look through them, so a position means the same with and without them.
export const runtimeNodeAttribute = 'data-tomekeeper-runtime';

export function isRuntimeNode(node: Node): boolean {
  return node.nodeType === Node.ELEMENT_NODE && (node as Element).hasAttribute(runtimeNodeAttribute);
}

export function isTextLike(node: Node): node is CharacterData {
  return node.nodeType === Node.TEXT_NODE || node.nodeType === Node.CDATA_SECTION_NODE;
}
