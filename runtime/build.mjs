// Bundles the reader runtime into dist/ (or the directory after --out-dir): index.html, runtime.js
// (one classic script) and runtime.css. The CMake build writes into its own tree this way, so that
// build directories never share an output.
import { build } from 'esbuild';
import { copyFile, mkdir, rm } from 'node:fs/promises';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

const root = dirname(fileURLToPath(import.meta.url));
const outDirectoryFlag = process.argv.indexOf('--out-dir');
const outputDirectory =
  outDirectoryFlag >= 0 && process.argv[outDirectoryFlag + 1] !== undefined
    ? resolve(process.argv[outDirectoryFlag + 1])
    : join(root, 'dist');

await rm(outputDirectory, { recursive: true, force: true });
await mkdir(outputDirectory, { recursive: true });
await build({
  entryPoints: [join(root, 'src', 'main.ts')],
  bundle: true,
  format: 'iife',
  target: ['es2022'],
  platform: 'browser',
  minify: process.argv.includes('--minify'),
  sourcemap: false,
  legalComments: 'none',
  outfile: join(outputDirectory, 'runtime.js'),
  logLevel: 'warning',
});
await copyFile(join(root, 'index.html'), join(outputDirectory, 'index.html'));
await copyFile(join(root, 'src', 'runtime.css'), join(outputDirectory, 'runtime.css'));
console.log(`reader runtime written to ${outputDirectory}`);
