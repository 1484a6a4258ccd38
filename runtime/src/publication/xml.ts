// Small helpers over parsed XML documents. Books disagree about prefixes and default namespaces, so
// elements are matched by local name and, where it matters, by namespace.

export const opfNamespace = 'http://www.idpf.org/2007/opf';
export const dublinCoreNamespace = 'http://purl.org/dc/elements/1.1/';
export const opsNamespace = 'http://www.idpf.org/2007/ops';
export const xhtmlNamespace = 'http://www.w3.org/1999/xhtml';

export class PublicationFormatError extends Error {
  readonly code: string;

  constructor(code: string, message: string) {
    super(message);
    this.name = 'PublicationFormatError';
    this.code = code;
  }
}

// Parses XML, failing on the parser's error document instead of handing it on.
export function parseXML(text: string, mimeType: DOMParserSupportedType, what: string): Document {
  const document = new DOMParser().parseFromString(text, mimeType);
  if (document.getElementsByTagName('parsererror').length > 0 || document.documentElement === null) {
    throw new PublicationFormatError('malformed-xml', `${what} is not well-formed XML`);
  }
  return document;
}

export function childElements(parent: Element, localName?: string): Element[] {
  const result: Element[] = [];
  for (let child = parent.firstElementChild; child !== null; child = child.nextElementSibling) {
    if (localName === undefined || child.localName === localName) result.push(child);
  }
  return result;
}

export function firstChildElement(parent: Element, localName: string): Element | undefined {
  return childElements(parent, localName)[0];
}

export function descendantElements(parent: Element | Document, localName: string, namespace?: string): Element[] {
  const all = parent.getElementsByTagName('*');
  const result: Element[] = [];
  for (const element of Array.from(all)) {
    if (element.localName === localName && (namespace === undefined || element.namespaceURI === namespace)) {
      result.push(element);
    }
  }
  return result;
}

// Text content with runs of white space made single spaces, as titles are shown on one line.
export function collapsedText(node: Node): string {
  return (node.textContent ?? '').replace(/\s+/g, ' ').trim();
}

// Space-separated attribute values such as `properties`.
export function tokens(value: string | null): string[] {
  if (value === null) return [];
  return value.split(/\s+/).filter((token) => token.length > 0);
}
