#!/usr/bin/env node
import process from 'node:process';

import { runCommand } from '../lib/command/main.mjs';

process.exitCode = await runCommand(process.argv.slice(2));
