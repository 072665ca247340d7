import js from '@eslint/js';
import globals from 'globals';

export default [
  {
    ignores: [
      'build/', 'demo-output/', 'node_modules/', 'prebuilds/', '**/*.ts',
    ],
  },
  js.configs.recommended,
  {
    languageOptions: { ecmaVersion: 2023, globals: globals.node },
    rules: {
      curly: ['error', 'multi-line'],
      eqeqeq: 'error',
      'no-unused-vars': ['error', { ignoreRestSiblings: true }],
      'no-var': 'error',
      'prefer-const': 'error',
      // A helper's message often holds all that its cause said.
      'preserve-caught-error': 'off',
    },
  },
  {
    files: ['lib/preview/page/*.mjs'],
    languageOptions: {
      globals: { ...globals.browser, ...globals.audioWorklet },
    },
  },
  { files: ['**/*.js'], languageOptions: { sourceType: 'commonjs' } },
  {
    // Its second assignment is for readers of the text only.
    files: ['index.js'],
    rules: { 'no-constant-binary-expression': 'off' },
  },
];
