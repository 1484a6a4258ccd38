// Undoing the two font obfuscations that books may use. Neither is encryption: each XORs the head of
// the font file with a key made from the book's own identifier, so that a font copied out of the
// book alone does not load. The container's validation lets no other algorithm through.
import { descendantElements, parseXML } from './xml';

export const idpfObfuscationAlgorithm = 'http://www.idpf.org/2008/embedding';
export const adobeObfuscationAlgorithm = 'http://ns.adobe.com/pdf/enc#RC';

export type ObfuscationAlgorithm = typeof idpfObfuscationAlgorithm | typeof adobeObfuscationAlgorithm;

// How many leading bytes each algorithm mixed with its key.
export const idpfObfuscatedLength = 1040;
export const adobeObfuscatedLength = 1024;

export interface ObfuscatedResource {
  algorithm: ObfuscationAlgorithm;
  // The resource's path as the encryption metadata gives it, relative to the container's root.
  uri: string;
}

export type Digest = (data: Uint8Array<ArrayBuffer>) => Promise<ArrayBuffer>;

// SHA-1 of the platform; the runtime page is a secure context, where the digest is offered.
export const sha1: Digest = (data) => crypto.subtle.digest('SHA-1', data);

function isObfuscationAlgorithm(value: string): value is ObfuscationAlgorithm {
  return value === idpfObfuscationAlgorithm || value === adobeObfuscationAlgorithm;
}

// The resources that META-INF/encryption.xml lists under one of the two obfuscation algorithms.
// Entries under any other algorithm, or without a reference, are left out.
export function parseEncryptionDocument(text: string): ObfuscatedResource[] {
  const document = parseXML(text, 'application/xml', 'the encryption metadata');
  const resources: ObfuscatedResource[] = [];
  for (const encryptedData of descendantElements(document, 'EncryptedData')) {
    const algorithm = descendantElements(encryptedData, 'EncryptionMethod')[0]?.getAttribute('Algorithm') ?? '';
    if (!isObfuscationAlgorithm(algorithm)) continue;
    for (const reference of descendantElements(encryptedData, 'CipherReference')) {
      const uri = reference.getAttribute('URI');
      if (uri !== null && uri.length > 0) resources.push({ algorithm, uri });
    }
  }
  return resources;
}

// The identifier with the white space of XML (space, tab, carriage return, line feed) taken out.
export function identifierWithoutWhiteSpace(identifier: string): string {
  return identifier.replace(/[\u0020\u0009\u000d\u000a]/g, '');
}

// The 16 bytes of a "urn:uuid:" identifier, or undefined when the text is not one.
export function uuidBytes(identifier: string): Uint8Array | undefined {
  const match = /^urn:uuid:([0-9a-f-]+)$/i.exec(identifier.trim());
  if (match === null) return undefined;
  const hex = (match[1] as string).replace(/-/g, '');
  if (hex.length !== 32) return undefined;
  const bytes = new Uint8Array(16);
  for (let index = 0; index < 16; index += 1) bytes[index] = parseInt(hex.slice(2 * index, 2 * index + 2), 16);
  return bytes;
}

export interface PublicationIdentifiers {
  // The unique identifier's text as written in the package document.
  uniqueIdentifier: string | undefined;
  // Every identifier's text, in document order.
  identifiers: string[];
}

// The key of an algorithm for a book, or undefined when the book lacks the identifier it needs.
// The older algorithm takes the book's "urn:uuid:" identifier: the unique one when it is such,
// else the first that is.
export async function obfuscationKey(
  algorithm: ObfuscationAlgorithm,
  identifiers: PublicationIdentifiers,
  digest: Digest = sha1,
): Promise<Uint8Array | undefined> {
  if (algorithm === idpfObfuscationAlgorithm) {
    if (identifiers.uniqueIdentifier === undefined) return undefined;
    const source = new TextEncoder().encode(identifierWithoutWhiteSpace(identifiers.uniqueIdentifier));
    return new Uint8Array(await digest(source));
  }
  const candidates = identifiers.uniqueIdentifier === undefined ? identifiers.identifiers : [identifiers.uniqueIdentifier, ...identifiers.identifiers];
  for (const candidate of candidates) {
    const bytes = uuidBytes(candidate);
    if (bytes !== undefined) return bytes;
  }
  return undefined;
}

export function obfuscatedLength(algorithm: ObfuscationAlgorithm): number {
  return algorithm === idpfObfuscationAlgorithm ? idpfObfuscatedLength : adobeObfuscatedLength;
}

// The font with its head XORed with the key again, which restores it; the input is not changed.
export function deobfuscate(data: ArrayBuffer, key: Uint8Array, algorithm: ObfuscationAlgorithm): ArrayBuffer {
  const bytes = new Uint8Array(data.slice(0));
  const length = Math.min(bytes.length, obfuscatedLength(algorithm));
  for (let index = 0; index < length; index += 1) bytes[index] = (bytes[index] as number) ^ (key[index % key.length] as number);
  return bytes.buffer;
}
