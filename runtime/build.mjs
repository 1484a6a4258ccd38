// Bundles the reader runtime into dist/: index.html, runtime.js (one classic script) and runtime.css.
import { build } from 'esbuild';
import { copyFile, mkdir, rm } from 'node:fs/promises';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const root = dirname(fileURLToPath(import.meta.url));
const outputDirectory = join(root, 'dist');

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
