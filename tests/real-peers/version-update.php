<?php
// A typical update page, for the tests with real servers. Lines end in CR LF, as many services
// write them. The message reports the request, the proxy, the credentials and every field as PHP
// decoded it.

const NEWEST = [
    'Quintral Shapes' => ['5.200', 'http://www.quintral.example/shapes', 'Get it'],
    'Quintral Frames' => ['12', '', ''],
];

function refuse(int $status, string $why): never
{
    http_response_code($status);
    header('Content-Type: text/plain');
    exit("$why\r\n");
}

function answer(array $lines, string $message): never
{
    header('Content-Type: text/plain');
    foreach ($lines as $key => $value) {
        if ($value !== '') {
            echo "$key: $value\r\n";
        }
    }
    exit("Message: $message\r\n");
}

// A version with up to three decimal places, as an integer number of thousandths.
function thousandths(string $version): int
{
    [$whole, $fraction] = explode('.', "$version.");
    return (int) ($whole . substr($fraction . '000', 0, 3));
}

function received(): string
{
    $via = preg_replace('/ \(.*\)$/', '', $_SERVER['HTTP_VIA'] ?? 'none'); // without a version
    $text = "$_SERVER[REQUEST_METHOD] $_SERVER[REQUEST_URI] $_SERVER[SERVER_PROTOCOL]";
    $text .= ", via $via\r\n";
    $text .= 'credentials ' . ($_SERVER['HTTP_AUTHORIZATION'] ?? 'none');
    foreach ($_POST as $name => $value) {
        $text .= "\r\n$name=$value";
    }
    return $text;
}

if ($_SERVER['REQUEST_METHOD'] !== 'POST') {
    refuse(405, 'This page takes POST only.');
}
$product = $_POST['product'] ?? refuse(400, 'The field product is missing.');
if ($product === 'Gone') {
    refuse(410, 'This product is gone.');
}
if ($product === 'Long') {
    answer([], str_repeat('0123456789', 6000));
}
if (!isset(NEWEST[$product])) {
    answer([], "Unknown product.\r\n" . received());
}
[$version, $url, $button] = NEWEST[$product];
if (thousandths($version) <= thousandths($_POST['version'])) {
    answer(['Version' => $version], "You have the newest version.\r\n" . received());
}
answer(['Version' => $version, 'URL' => $url, 'Button' => $button],
    "$product $version is here.\r\n" . received());
