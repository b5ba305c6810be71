<?php
// bench/include.html in PHP: twenty small parts, each counting itself.
$title = "Include page";
$parts = 0;
include 'inc/01.php';
include 'inc/02.php';
include 'inc/03.php';
include 'inc/04.php';
include 'inc/05.php';
include 'inc/06.php';
include 'inc/07.php';
include 'inc/08.php';
include 'inc/09.php';
include 'inc/10.php';
include 'inc/11.php';
include 'inc/12.php';
include 'inc/13.php';
include 'inc/14.php';
include 'inc/15.php';
include 'inc/16.php';
include 'inc/17.php';
include 'inc/18.php';
include 'inc/19.php';
include 'inc/20.php';
?>
<!-- include: <?= $parts ?> parts -->
