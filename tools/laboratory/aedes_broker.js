// SPDX-License-Identifier: MIT
// The broker aedes on 127.0.0.1, for script/test-brokers: node aedes_broker.js CONFIGURATION, a JSON file with "port",
// "tlsPort", "cert", "key" (files), "username" and "password". NODE_PATH has to lead to aedes.
'use strict'

const fs = require('fs')
const net = require('net')
const tls = require('tls')

const settings = JSON.parse(fs.readFileSync(process.argv[2]))
const aedes = require('aedes')({ concurrency: 1000 })

aedes.authenticate = (client, username, password, done) => {
  const known = username === settings.username && String(password) === settings.password
  done(known ? null : Object.assign(new Error('not let in'), { returnCode: 4 }), known)
}
for (const event of ['clientError', 'connectionError']) {
  aedes.on(event, (client, error) => console.log(`${event} ${client && client.id}: ${error.message}`))
}
net.createServer(aedes.handle).listen(settings.port, '127.0.0.1', () => {
  const files = { cert: fs.readFileSync(settings.cert), key: fs.readFileSync(settings.key) }
  tls.createServer(files, aedes.handle).listen(settings.tlsPort, '127.0.0.1', () => console.log('running'))
})
