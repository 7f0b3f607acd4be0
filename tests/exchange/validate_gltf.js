// Usage: node validate_gltf.js NPM_PREFIX FILE.glb
// Runs the reference glTF validator on one file, prints its messages and a summary line, and
// exits 1 when it finds errors (2 when it cannot run).
const fs = require('fs');
const path = require('path');
const [prefix, file] = process.argv.slice(2);
const validator = require(path.resolve(prefix, 'node_modules', 'gltf-validator'));
validator.validateBytes(new Uint8Array(fs.readFileSync(file)), {maxIssues: 100})
    .then((report) => {
        const issues = report.issues;
        for (const m of issues.messages)
            console.log(`${m.severity} ${m.code} ${m.pointer || ''} ${m.message}`);
        console.log(`${file}: ${issues.numErrors} errors, ${issues.numWarnings} warnings, ` +
                    `${issues.numInfos} infos`);
        process.exit(issues.numErrors > 0 ? 1 : 0);
    })
    .catch((error) => {
        console.error(`${file}: ${error}`);
        process.exit(2);
    });
