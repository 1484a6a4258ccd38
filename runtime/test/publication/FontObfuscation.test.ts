import { createHash, webcrypto } from 'node:crypto';
import { describe, expect, it } from 'vitest';
import {
  adobeObfuscationAlgorithm,
  deobfuscate,
  identifierWithoutWhiteSpace,
  idpfObfuscationAlgorithm,
  obfuscationKey,
  parseEncryptionDocument,
  uuidBytes,
  type Digest,
  type ObfuscationAlgorithm,
} from '../../src/publication/FontObfuscation';

const nodeSha1: Digest = (data) => webcrypto.subtle.digest('SHA-1', data);

function hex(bytes: Uint8Array): string {
  return Array.from(bytes, (byte) => byte.toString(16).padStart(2, '0')).join('');
}

// A stand-in for a font: a recognisable header and a long, varied body.
function fontBytes(length: number): Uint8Array {
  const bytes = new Uint8Array(length);
  bytes.set([0x4f, 0x54, 0x54, 0x4f]);
  for (let index = 4; index < length; index += 1) bytes[index] = (index * 7 + 3) & 0xff;
  return bytes;
}

// The obfuscation as a book's producer applies it, written out independently here.
function obfuscate(bytes: Uint8Array, key: Uint8Array, length: number): ArrayBuffer {
  const copy = new Uint8Array(bytes);
  for (let index = 0; index < Math.min(length, copy.length); index += 1) copy[index] = copy[index]! ^ key[index % key.length]!;
  return copy.buffer;
}

describe('the obfuscation key', () => {
  it.each<[string, ObfuscationAlgorithm, string | undefined, string[], string | undefined]>([
    // SHA-1 of "abc", the first test vector of the SHA-1 standard.
    ['IDPF: the SHA-1 of the unique identifier without its white space', idpfObfuscationAlgorithm, ' a b\tc\r\n', [], 'a9993e364706816aba3e25717850c26c9cd0d89d'],
    [
      'IDPF: characters that are not XML white space are kept',
      idpfObfuscationAlgorithm,
      'urn:isbn:978\u00a0000',
      [],
      createHash('sha1').update(Buffer.from('urn:isbn:978\u00a0000', 'utf8')).digest('hex'),
    ],
    ['IDPF: none for a book without a unique identifier', idpfObfuscationAlgorithm, undefined, ['abc'], undefined],
    [
      'Adobe: the 16 bytes of the urn:uuid identifier',
      adobeObfuscationAlgorithm,
      'urn:isbn:9780000000000',
      ['urn:isbn:9780000000000', ' urn:uuid:2B0B8C1E-3f43-4a5e-9e55-0c3c1c8f2d10 '],
      '2b0b8c1e3f434a5e9e550c3c1c8f2d10',
    ],
    [
      'Adobe: the unique identifier first when it is a urn:uuid',
      adobeObfuscationAlgorithm,
      'urn:uuid:00000000-0000-0000-0000-000000000001',
      ['urn:uuid:ffffffff-ffff-ffff-ffff-ffffffffffff'],
      '00000000000000000000000000000001',
    ],
    ['Adobe: none without a urn:uuid identifier', adobeObfuscationAlgorithm, 'book-1', ['urn:uuid:1234'], undefined],
  ])('%s', async (_name, algorithm, uniqueIdentifier, identifiers, expected) => {
    const key = await obfuscationKey(algorithm, { uniqueIdentifier, identifiers }, nodeSha1);
    expect(key === undefined ? undefined : hex(key)).toBe(expected);
  });

  it('TakesOffOnlyXMLWhiteSpaceAndRefusesABadUuid', () => {
    expect(identifierWithoutWhiteSpace(' x\u00a0y ')).toBe('x\u00a0y');
    expect(uuidBytes('urn:uuid:not-hex-at-all-not-hex-at-all-00')).toBeUndefined();
  });
});

describe('undoing the obfuscation', () => {
  it('restores the first 1040 bytes under the IDPF algorithm and leaves the rest', async () => {
    const font = fontBytes(4000);
    const key = (await obfuscationKey(idpfObfuscationAlgorithm, { uniqueIdentifier: 'urn:uuid:abc', identifiers: [] }, nodeSha1))!;
    const obfuscated = obfuscate(font, key, 1040);
    expect(new Uint8Array(obfuscated).slice(0, 4)).not.toEqual(font.slice(0, 4));
    const restored = deobfuscate(obfuscated, key, idpfObfuscationAlgorithm);
    expect(new Uint8Array(restored)).toEqual(font);
    // The input stays as it was.
    expect(new Uint8Array(obfuscated)).toEqual(new Uint8Array(obfuscate(font, key, 1040)));
  });

  it('touches exactly 1040 bytes under the IDPF algorithm and 1024 under the Adobe one', () => {
    const zeros = new ArrayBuffer(1100);
    const key = new Uint8Array(20).fill(0xff);
    const idpf = new Uint8Array(deobfuscate(zeros, key, idpfObfuscationAlgorithm));
    expect(idpf.slice(0, 1040).every((byte) => byte === 0xff)).toBe(true);
    expect(idpf.slice(1040).every((byte) => byte === 0)).toBe(true);
    const adobe = new Uint8Array(deobfuscate(zeros, key.slice(0, 16), adobeObfuscationAlgorithm));
    expect(adobe.slice(0, 1024).every((byte) => byte === 0xff)).toBe(true);
    expect(adobe.slice(1024).every((byte) => byte === 0)).toBe(true);
  });

  it('restores a font shorter than the obfuscated head', async () => {
    const font = fontBytes(100);
    const key = uuidBytes('urn:uuid:2b0b8c1e-3f43-4a5e-9e55-0c3c1c8f2d10')!;
    expect(new Uint8Array(deobfuscate(obfuscate(font, key, 1024), key, adobeObfuscationAlgorithm))).toEqual(font);
  });
});

describe('the encryption metadata', () => {
  it('lists the resources of both obfuscation algorithms and nothing else', () => {
    const resources = parseEncryptionDocument(`<?xml version="1.0"?>
<encryption xmlns="urn:oasis:names:tc:opendocument:xmlns:container" xmlns:enc="http://www.w3.org/2001/04/xmlenc#">
  <enc:EncryptedData><enc:EncryptionMethod Algorithm="http://www.idpf.org/2008/embedding"/>
    <enc:CipherData><enc:CipherReference URI="EPUB/fonts/a.otf"/></enc:CipherData></enc:EncryptedData>
  <enc:EncryptedData><enc:EncryptionMethod Algorithm="http://ns.adobe.com/pdf/enc#RC"/>
    <enc:CipherData><enc:CipherReference URI="EPUB/fonts/b%20c.ttf"/></enc:CipherData></enc:EncryptedData>
  <enc:EncryptedData><enc:EncryptionMethod Algorithm="http://www.w3.org/2001/04/xmlenc#aes128-cbc"/>
    <enc:CipherData><enc:CipherReference URI="EPUB/secret.xhtml"/></enc:CipherData></enc:EncryptedData>
</encryption>`);
    expect(resources).toEqual([
      { algorithm: idpfObfuscationAlgorithm, uri: 'EPUB/fonts/a.otf' },
      { algorithm: adobeObfuscationAlgorithm, uri: 'EPUB/fonts/b%20c.ttf' },
    ]);
  });
});
